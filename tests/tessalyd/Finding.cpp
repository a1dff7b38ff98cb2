#include "tests/tessalyd/Finding.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <cstring>
#include <stdexcept>
#include <string_view>

#include "tests/support/Eventually.h"

namespace tessaly::test {

namespace {

T_ASC_PresentationContextID contextOf(std::string_view sopClass) {
    return sopClass == PatientRootFind ? 3 : 5;
}

void check(const OFCondition& condition) {
    if (condition.bad())
        throw std::runtime_error{condition.text()};
}

}  // namespace

std::vector<RequestorAssociation::Context> Finding::contexts() {
    return {{UID_VerificationSOPClass, {UID_LittleEndianImplicitTransferSyntax}},
            {PatientRootFind, {UID_LittleEndianExplicitTransferSyntax}},
            {StudyRootFind, {UID_LittleEndianExplicitTransferSyntax}}};
}

Finding::Finding(RequestorAssociation& peer, DcmDataset identifier, const char* sopClass)
    : peer_(peer), context_(contextOf(sopClass)) {
    T_DIMSE_Message message{};
    message.CommandField = DIMSE_C_FIND_RQ;
    T_DIMSE_C_FindRQ& request = message.msg.CFindRQ;
    messageId_ = request.MessageID = peer_.raw()->nextMsgID++;
    std::strncpy(request.AffectedSOPClassUID, sopClass, sizeof request.AffectedSOPClassUID - 1);
    request.Priority = DIMSE_PRIORITY_MEDIUM;
    request.DataSetType = DIMSE_DATASET_PRESENT;
    check(DIMSE_sendMessageUsingMemoryData(peer_.raw(), context_, &message, nullptr, &identifier, nullptr,
                                           nullptr));
}

Finding::Finding(RequestorAssociation& peer, std::span<const char> identifier, const char* sopClass)
    : peer_(peer),
      context_(contextOf(StudyRootFind)),
      messageId_(peer_.sendFind(context_, sopClass, identifier)) {}

Finding::Answer Finding::next() {
    Answer answer;
    T_ASC_PresentationContextID context = 0;
    T_DIMSE_Message message{};
    DcmDataset* detail = nullptr;
    if (DIMSE_receiveCommand(peer_.raw(), DIMSE_NONBLOCKING, PatienceSeconds, &context, &message, &detail)
            .bad())
        return answer;
    const std::unique_ptr<DcmDataset> owned{detail};
    const T_DIMSE_C_FindRSP& response = message.msg.CFindRSP;
    if (message.CommandField != DIMSE_C_FIND_RSP || context != context_ ||
        response.MessageIDBeingRespondedTo != messageId_)
        throw std::runtime_error{"this is no answer to the request"};
    answer.status = response.DimseStatus;
    if (detail != nullptr) {
        OFString comment;
        detail->findAndGetOFString(DCM_ErrorComment, comment);
        answer.comment = comment;
        DcmElement* offending = nullptr;
        DcmTagKey tag;
        if (detail->findAndGetElement(DCM_OffendingElement, offending).good() &&
            offending->getTagVal(tag).good())
            answer.offending = tag;
    }
    if (response.DataSetType != DIMSE_DATASET_NULL) {
        DcmDataset* found = nullptr;
        check(DIMSE_receiveDataSetInMemory(peer_.raw(), DIMSE_NONBLOCKING, PatienceSeconds, &context, &found,
                                           nullptr, nullptr));
        answer.found.reset(found);
    }
    return answer;
}

std::string Finding::Answer::value(const DcmTagKey& tag) const {
    OFString text;
    if (found)
        found->findAndGetOFStringArray(tag, text);
    return text;
}

QStringList Finding::rest(const DcmTagKey& tag) {
    QStringList values;
    Answer answer = next();
    for (; answer.isPending(); answer = next())
        values << QString::fromStdString(answer.value(tag));
    return values << QString::number(answer.status, 16).rightJustified(4, u'0');
}

Finding::Rest Finding::rest() {
    Rest rest;
    for (rest.last = next(); rest.last.isPending(); rest.last = next())
        ++rest.pending;
    return rest;
}

void Finding::cancel() {
    check(DIMSE_sendCancelRequest(peer_.raw(), context_, messageId_));
}

Finding::Rest findAll(RequestorAssociation& peer, const DcmDataset& identifier, const char* sopClass) {
    return Finding{peer, identifier, sopClass}.rest();
}

}  // namespace tessaly::test
