#include "dicom/net/MessageStream.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmnet/cond.h>
#include <dcmtk/dcmnet/dulstruc.h>

#include <optional>

#include "dicom/data/SinkStream.h"
#include "dicom/net/AssociationEnded.h"

namespace tessaly::dicom {

namespace {

std::span<const char> bytesOf(const DUL_PDV& part) {
    return {static_cast<const char*>(part.data), part.fragmentLength};
}

void encode(DcmDataset& dataSet, E_TransferSyntax syntax, std::vector<char>& bytes) {
    bytes.clear();
    SinkStream stream{
        [&bytes](std::span<const char> block) { bytes.insert(bytes.end(), block.begin(), block.end()); }};
    if (!dataSet.canWriteXfer(syntax))
        throw AssociationEnded{DIMSE_SENDFAILED};
    dataSet.transferInit();
    const OFCondition written = dataSet.write(stream, syntax, EET_ExplicitLength, nullptr, EGL_withoutGL);
    dataSet.transferEnd();
    stream.rethrow();
    require(written);
}

}  // namespace

MessageStream::MessageStream(T_ASC_Association& association, Trace trace)
    : association_(association), trace_(std::move(trace)) {}

/// The toolkit's own functions for this take commands of the services alone that it knows.
DUL_PDV MessageStream::nextPart(std::chrono::seconds timeout) {
    DUL_PDV part{};
    if (DUL_NextPDV(&association_.DULassociation, &part).good())
        return part;
    const int seconds = static_cast<int>(timeout.count());
    if (!ASC_dataWaiting(&association_, seconds))
        throw AssociationEnded{DIMSE_NODATAAVAILABLE};
    const OFCondition read = DUL_ReadPDVs(&association_.DULassociation, nullptr, DUL_NOBLOCK, seconds);
    if (read != DUL_PDATAPDUARRIVED)
        throw AssociationEnded{read.bad() ? read : OFCondition{DIMSE_READPDVFAILED}};
    require(DUL_NextPDV(&association_.DULassociation, &part));
    return part;
}

MessageStream::Received MessageStream::receive(std::chrono::seconds timeout) {
    constexpr std::size_t LongestCommand = 64 << 10U;  // a peer's of ours; those that come in have less
    passOverDataSet(timeout);
    std::vector<char> bytes;
    for (bool isLast = false, isFirst = true; !isLast; isFirst = false) {
        const DUL_PDV part = nextPart(timeout);
        if (part.pdvType != DUL_COMMANDPDV)
            throw AssociationEnded{DIMSE_UNEXPECTEDPDVTYPE};
        const bool fits = bytes.size() + part.fragmentLength <= LongestCommand;
        if (!fits || (!isFirst && part.presentationContextID != commandContext_))
            throw AssociationEnded{DIMSE_BADMESSAGE};
        commandContext_ = part.presentationContextID;
        const auto piece = bytesOf(part);
        bytes.insert(bytes.end(), piece.begin(), piece.end());
        isLast = part.lastPDV;
    }
    auto command = Command::parse(bytes);
    if (!command)
        throw AssociationEnded{DIMSE_PARSEFAILED};
    isDataSetDue_ = command->hasDataSet();
    if (trace_)
        trace_(Direction::Received, commandContext_, *command);
    return {.context = commandContext_, .command = std::move(*command)};
}

bool MessageStream::receiveDataSet(std::chrono::seconds timeout, const Sink& sink) {
    std::optional<T_ASC_PresentationContextID> context;
    while (isDataSetDue_) {
        const DUL_PDV part = nextPart(timeout);
        if (part.pdvType != DUL_DATASETPDV)
            throw AssociationEnded{DIMSE_UNEXPECTEDPDVTYPE};
        if (context && part.presentationContextID != *context)
            throw AssociationEnded{DIMSE_BADMESSAGE};
        context = part.presentationContextID;
        isDataSetDue_ = !part.lastPDV;
        if (part.fragmentLength > 0)
            sink(bytesOf(part));
    }
    return context == commandContext_;
}

void MessageStream::passOverDataSet(std::chrono::seconds timeout) {
    if (isDataSetDue_)
        (void)receiveDataSet(timeout, [](std::span<const char>) {});
}

/// What the toolkit has read together with the part before, in one PDU, the connection does not see any more.
bool MessageStream::hasMore() const {
    const auto* const key = static_cast<const PRIVATE_ASSOCIATIONKEY*>(association_.DULassociation);
    return key->pdvIndex >= 0 || ASC_dataWaiting(&association_, 0);
}

void MessageStream::send(const AcceptedContext& context, Command command, DcmDataset* dataSet) {
    if (dataSet != nullptr)
        encode(*dataSet, context.syntax().toolkitName(), encoded_);
    sendCommand(context.id, command.setHasDataSet(dataSet != nullptr));
    if (dataSet != nullptr)
        sendDataSet(context.id, encoded_, true);
}

void MessageStream::sendCommand(T_ASC_PresentationContextID context, const Command& command) {
    if (trace_)
        trace_(Direction::Sent, context, command);
    write(context, DUL_COMMANDPDV, command.encoded(), true);
}

void MessageStream::sendDataSet(T_ASC_PresentationContextID context, std::span<const char> part,
                                bool isLast) {
    write(context, DUL_DATASETPDV, part, isLast);
}

/// The toolkit splits what is longer than the other side takes in one piece.
void MessageStream::write(T_ASC_PresentationContextID context, DUL_DATAPDV type, std::span<const char> bytes,
                          bool isLast) {
    DUL_PDV pdv{};
    pdv.fragmentLength = bytes.size();
    pdv.presentationContextID = context;
    pdv.pdvType = type;
    pdv.lastPDV = isLast ? OFTrue : OFFalse;
    pdv.data = const_cast<char*>(bytes.data());
    DUL_PDVLIST list{.count = 1, .scratch = nullptr, .scratchLength = 0, .abort = {}, .pdv = &pdv};
    require(DUL_WritePDVs(&association_.DULassociation, &list));
}

}  // namespace tessaly::dicom
