#include "tessalyd/forwarding/films/PrinterLink.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/dimse.h>

#include <algorithm>
#include <array>

#include "dicom/net/AssociationEnded.h"
#include "tessalyd/forwarding/films/EncodedDataSet.h"

namespace tessaly::tessalyd::films {

namespace {

using Clock = dicom::IoLimits::Clock;
using dicom::Command;
using dicom::CommandField;

void append(std::vector<char>& bytes, std::uint32_t value, int size) {
    for (int i = 0; i < size; ++i, value >>= 8U)
        bytes.push_back(static_cast<char>(value & 0xffU));
}

/// In little endian; of the representations whose length has four bytes.
void appendHead(std::vector<char>& bytes, const DcmTagKey& tag, const char* vr, std::uint64_t length,
                bool hasVrs) {
    append(bytes, tag.getGroup(), 2);
    append(bytes, tag.getElement(), 2);
    if (hasVrs) {
        bytes.insert(bytes.end(), vr, vr + 2);
        append(bytes, 0, 2);
    }
    append(bytes, static_cast<std::uint32_t>(length), 4);
}

/// Collects what is sent into parts that fill PDUs.
class PartSender {
  public:
    /// Each part has the time to be taken.
    PartSender(dicom::OutboundAssociation& association, T_ASC_PresentationContextID context,
               std::chrono::milliseconds time)
        : association_(association),
          context_(context),
          time_(time),
          size_(std::max<std::size_t>(association.messages().bytesPerPdu(), 1) * 4) {}

    void add(std::span<const char> bytes) {
        while (!bytes.empty()) {
            const auto piece = bytes.first(std::min(bytes.size(), size_ - part_.size()));
            part_.insert(part_.end(), piece.begin(), piece.end());
            bytes = bytes.subspan(piece.size());
            if (part_.size() == size_ && !bytes.empty())
                send(false);
        }
        if (part_.size() == size_)
            send(false);
    }
    void finish() { send(true); }

  private:
    void send(bool isLast) {
        association_.setSendingDeadline(Clock::now() + time_);
        association_.messages().sendDataSet(context_, part_, isLast);
        part_.clear();
    }

    dicom::OutboundAssociation& association_;
    T_ASC_PresentationContextID context_;
    std::chrono::milliseconds time_;
    std::size_t size_;
    std::vector<char> part_;
};

}  // namespace

Verdict verdictOf(std::uint16_t status) noexcept {
    switch (status) {
        case 0x0000:
            return Verdict::Success;
        case 0x0001:
        case 0x0107:
        case 0x0116:
            return Verdict::Warning;
        case 0x0105:
        case 0x0106:
            return Verdict::Unacceptable;
        case 0xc601:
        case 0xc602:
        case 0xc605:
        case 0x0213:
            return Verdict::Busy;
        default:
            return (status & 0xf000U) == 0xb000U ? Verdict::Warning : Verdict::Failure;
    }
}

std::string hexadecimal(std::uint16_t status) {
    constexpr const char* Digits = "0123456789ABCDEF";
    std::string text;
    for (const unsigned shift : {12U, 8U, 4U, 0U})
        text.push_back(Digits[status >> shift & 15U]);
    return text;
}

PrinterLink::PrinterLink(const dicom::PeerAddress& printer, const std::vector<std::string>& sopClasses,
                         std::chrono::milliseconds answer, const std::stop_token& stop, EventSink events)
    : answer_(answer), events_(std::move(events)) {
    std::vector<dicom::ProposedContext> contexts;
    contexts.reserve(sopClasses.size());
    for (const std::string& sopClass : sopClasses)
        contexts.push_back({.sopClass = sopClass,
                            .transferSyntaxes = {UID_LittleEndianExplicitTransferSyntax,
                                                 UID_LittleEndianImplicitTransferSyntax}});
    association_ = dicom::openAssociation(printer, contexts, {.answer = answer}, stop);
}

const dicom::AcceptedContext* PrinterLink::contextOf(const std::string& sopClass) const {
    const auto& all = association_->contexts();
    const auto found = std::find_if(all.begin(), all.end(), [&](const dicom::AcceptedContext& one) {
        return one.sopClass == sopClass && dicom::isUncompressed(one.syntax()) &&
               one.syntax().isLittleEndian();
    });
    return found == all.end() ? nullptr : &*found;
}

const dicom::AcceptedContext& PrinterLink::context(T_ASC_PresentationContextID id) const {
    const auto& all = association_->contexts();
    const auto found = std::find_if(all.begin(), all.end(),
                                    [id](const dicom::AcceptedContext& one) { return one.id == id; });
    if (found == all.end())
        throw dicom::AssociationEnded{ASC_BADPRESENTATIONCONTEXTID};
    return *found;
}

Command PrinterLink::commandOf(const Request& request) {
    Command command = Command::request(request.field, association_->messages().nextMessageId());
    const bool isAffected = request.field == CommandField::NCreate;
    command.set(isAffected ? DCM_AffectedSOPClassUID : DCM_RequestedSOPClassUID, request.sopClass);
    if (!request.instance.empty())
        command.set(isAffected ? DCM_AffectedSOPInstanceUID : DCM_RequestedSOPInstanceUID, request.instance);
    if (request.field == CommandField::NAction)
        command.set(DCM_ActionTypeID, request.action);
    return command;
}

PrinterLink::Reply PrinterLink::exchange(const Request& request, DcmDataset* dataSet, int patience) {
    try {
        const Command command = commandOf(request);
        association_->setSendingDeadline(Clock::now() + answer_);
        association_->messages().send(*request.context, command, dataSet);
        return receiveReply(command.messageId(), patience);
    } catch (const dicom::AssociationEnded& ended) {
        throw association_->failure(ended.reason());
    }
}

PrinterLink::Reply PrinterLink::exchangeImage(const Request& request, const ImageDataSet& dataSet,
                                              const PixelSource& pixels) {
    try {
        const dicom::TransferSyntax syntax = request.context->syntax();
        const bool hasVrs = syntax.hasVrs();
        const std::uint64_t padding = dataSet.pixelBytes % 2;
        std::vector<char> item = encoded(dataSet.item, syntax);
        appendHead(item, DCM_PixelData, "OW", dataSet.pixelBytes + padding, hasVrs);
        constexpr std::size_t ItemHead = 8;
        const std::uint64_t itemBytes = item.size() + dataSet.pixelBytes + padding;
        std::vector<char> front = encoded(dataSet.before, syntax);
        appendHead(front, dataSet.sequence, "SQ", itemBytes + ItemHead, hasVrs);
        appendHead(front, DCM_Item, "", itemBytes, false);
        Command command = commandOf(request);
        association_->messages().sendCommand(request.context->id, command.setHasDataSet(true));
        PartSender parts{*association_, request.context->id, answer_};
        parts.add(front);
        parts.add(item);
        pixels([&parts](std::span<const char> piece) { parts.add(piece); });
        parts.add(std::vector<char>(static_cast<std::size_t>(padding)));
        parts.add(encoded(dataSet.behind, syntax));
        parts.finish();
        return receiveReply(command.messageId(), 1);
    } catch (const dicom::AssociationEnded& ended) {
        throw association_->failure(ended.reason());
    }
}

PrinterLink::Reply PrinterLink::receiveReply(std::uint16_t messageId, int patience) {
    const auto until = Clock::now() + answer_ * patience;
    for (;;) {
        const dicom::MessageStream::Received received = association_->receive(until);
        const Command& command = received.command;
        if (!command.isResponse()) {
            answerEvent(until, received);
            continue;
        }
        if (command.messageId() != messageId)
            throw dicom::AssociationEnded{DIMSE_BADCOMMANDTYPE};
        return {.status = command.status(),
                .comment = command.value(DCM_ErrorComment),
                .instance = command.sopInstanceUid(),
                .attributes = receiveAttributes(until, received)};
    }
}

/// What cannot be read counts as not sent.
AttributeSet PrinterLink::receiveAttributes(Clock::time_point until,
                                            const dicom::MessageStream::Received& received) {
    if (!received.command.hasDataSet())
        return {};
    AttributeCollector collector{context(received.context).syntax()};
    const bool belongs =
        association_->receiveDataSet(until, [&](std::span<const char> part) { collector.take(part); });
    if (!belongs)
        throw dicom::AssociationEnded{DIMSE_BADDATA};
    return collector.fault() ? AttributeSet{} : std::move(collector.attributes());
}

void PrinterLink::answerEvent(Clock::time_point until, const dicom::MessageStream::Received& received) {
    const Command& command = received.command;
    const AttributeSet attributes = receiveAttributes(until, received);
    constexpr std::uint16_t UnrecognizedOperation = 0x0211;
    const bool isEvent = command.field() == CommandField::NEventReport;
    const Command response = Command::responseTo(command, isEvent ? 0 : UnrecognizedOperation);
    association_->setSendingDeadline(until);
    association_->messages().send(context(received.context), response);
    if (!isEvent)
        return;
    const auto info = [&attributes](const DcmTagKey& tag) { return attributes.text(tag).value_or(""); };
    std::string words = info(DCM_ExecutionStatusInfo);
    events_({.sopClass = command.sopClassUid(),
             .instance = command.sopInstanceUid(),
             .type = command.number(DCM_EventTypeID).value_or(0),
             .info = words.empty() ? info(DCM_PrinterStatusInfo) : words});
}

void PrinterLink::release() {
    listen(std::chrono::milliseconds{0});
    association_->release();
}

void PrinterLink::listen(std::chrono::milliseconds atMost) {
    const auto until = Clock::now() + atMost;
    try {
        while (association_->waitForMessage(until)) {
            const auto received = association_->receive(Clock::now() + answer_);
            if (received.command.isResponse())
                throw dicom::AssociationEnded{DIMSE_BADCOMMANDTYPE};
            answerEvent(Clock::now() + answer_, received);
        }
    } catch (const dicom::AssociationEnded& ended) {
        throw association_->failure(ended.reason());
    }
}

}  // namespace tessaly::tessalyd::films
