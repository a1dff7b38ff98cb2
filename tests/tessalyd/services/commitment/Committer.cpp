#include "tests/tessalyd/services/commitment/Committer.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <chrono>
#include <stdexcept>

#include "dicom/data/SinkStream.h"
#include "dicom/net/AssociationEnded.h"
#include "tests/support/Eventually.h"

namespace tessaly::test {

using namespace std::chrono_literals;

std::vector<char> commitmentDataSet(const CommitmentAsk& ask, const std::string& syntax) {
    DcmDataset data;
    if (!ask.transactionUid.empty())
        data.putAndInsertString(DCM_TransactionUID, ask.transactionUid.c_str());
    long number = 0;
    for (const auto& [sopClass, instance] : ask.references) {
        DcmItem* item = nullptr;
        data.findOrCreateSequenceItem(DCM_ReferencedSOPSequence, item, number++);
        item->putAndInsertString(DCM_ReferencedSOPClassUID, sopClass.c_str());
        item->putAndInsertString(DCM_ReferencedSOPInstanceUID, instance.c_str());
    }
    std::vector<char> bytes;
    dicom::SinkStream stream{
        [&bytes](std::span<const char> block) { bytes.insert(bytes.end(), block.begin(), block.end()); }};
    data.transferInit();
    data.write(stream, DcmXfer{syntax.c_str()}.getXfer(), EET_UndefinedLength, nullptr);
    data.transferEnd();
    return bytes;
}

Committer::Committer(const QString& port, const std::string& calling, const std::string& syntax,
                     const std::string& called)
    : association_(dicom::openAssociation(
          {.host = port.contains(u':') ? port.section(u':', 0, 0).toStdString() : "127.0.0.1",
           .port = static_cast<std::uint16_t>(port.section(u':', -1).toUInt()),
           .callingAeTitle = calling,
           .calledAeTitle = called},
          std::vector{
              dicom::ProposedContext{.sopClass = "1.2.840.10008.1.20.1", .transferSyntaxes = {syntax}}},
          {}, {})) {
    if (association_->contexts().empty())
        throw std::runtime_error{"storage commitment was not accepted"};
}

Committer::~Committer() {
    association_->release();
}

int Committer::ask(const CommitmentAsk& ask) {
    return askBytes(ask, commitmentDataSet(ask, association_->contexts().front().transferSyntax));
}

int Committer::askBytes(const CommitmentAsk& ask, std::span<const char> dataSet) {
    dicom::MessageStream& messages = association_->messages();
    const auto& context = association_->contexts().front();
    auto command = dicom::Command::request(dicom::CommandField::NAction, messages.nextMessageId());
    command.set(DCM_RequestedSOPClassUID, ask.sopClass)
        .set(DCM_RequestedSOPInstanceUID, ask.sopInstance)
        .set(DCM_ActionTypeID, ask.actionType)
        .setHasDataSet(ask.hasDataSet);
    messages.sendCommand(context.id, command);
    if (ask.hasDataSet)
        messages.sendDataSet(context.id, dataSet, true);
    return association_->receiveResponse(command.messageId(), std::chrono::milliseconds{PatienceMs}).status();
}

int Committer::hearReport(std::uint16_t answer) {
    dicom::MessageStream& messages = association_->messages();
    try {
        const auto received = messages.receive(std::chrono::seconds{PatienceMs / 1000});
        messages.passOverDataSet(60s);
        if (received.command.field() != dicom::CommandField::NEventReport)
            return -1;
        messages.send(association_->contexts().front(), dicom::Command::responseTo(received.command, answer));
        return received.command.number(DCM_EventTypeID).value_or(-1);
    } catch (const dicom::AssociationEnded&) {
        return 0;
    }
}

}  // namespace tessaly::test
