#include "tests/tessalyd/services/retrieve/Retriever.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/ofstd/ofstd.h>

#include <cstring>
#include <stdexcept>

#include "dicom/data/SinkStream.h"
#include "tests/support/Eventually.h"

namespace tessaly::test {

namespace {

void check(const OFCondition& condition) {
    if (condition.bad())
        throw std::runtime_error{condition.text()};
}

std::vector<RequestorAssociation::Context> withFixed(
    const std::vector<RequestorAssociation::Context>& toReceive) {
    std::vector<RequestorAssociation::Context> contexts;
    for (const char* sopClass :
         {UID_VerificationSOPClass, UID_GETStudyRootQueryRetrieveInformationModel,
          UID_GETPatientRootQueryRetrieveInformationModel, UID_MOVEStudyRootQueryRetrieveInformationModel,
          UID_MOVEPatientRootQueryRetrieveInformationModel})
        contexts.push_back({sopClass, {UID_LittleEndianExplicitTransferSyntax}});
    contexts.insert(contexts.end(), toReceive.begin(), toReceive.end());
    return contexts;
}

const char* sopClassOf(Retriever::ContextId context) {
    switch (context) {
        case Retriever::GetStudyRoot:
            return UID_GETStudyRootQueryRetrieveInformationModel;
        case Retriever::GetPatientRoot:
            return UID_GETPatientRootQueryRetrieveInformationModel;
        case Retriever::MoveStudyRoot:
            return UID_MOVEStudyRootQueryRetrieveInformationModel;
        default:
            return UID_MOVEPatientRootQueryRetrieveInformationModel;
    }
}

template <class Response>
Progress progressOf(const Response& response) {
    const auto value = [&response](unsigned flag, DIC_US counter) {
        return (response.opts & flag) != 0 ? int{counter} : -1;
    };
    return {.remaining = value(O_GET_NUMBEROFREMAININGSUBOPERATIONS, response.NumberOfRemainingSubOperations),
            .completed = value(O_GET_NUMBEROFCOMPLETEDSUBOPERATIONS, response.NumberOfCompletedSubOperations),
            .failed = value(O_GET_NUMBEROFFAILEDSUBOPERATIONS, response.NumberOfFailedSubOperations),
            .warned = value(O_GET_NUMBEROFWARNINGSUBOPERATIONS, response.NumberOfWarningSubOperations)};
}

DIC_US statusOf(const T_DIMSE_Message& message) {
    return message.CommandField == DIMSE_C_GET_RSP ? message.msg.CGetRSP.DimseStatus
                                                   : message.msg.CMoveRSP.DimseStatus;
}

}  // namespace

bool RetrievalMessage::isPending() const {
    return arrived && !isStore() && statusOf(message) == STATUS_Pending;
}

Progress RetrievalMessage::progress() const {
    return message.CommandField == DIMSE_C_GET_RSP ? progressOf(message.msg.CGetRSP)
                                                   : progressOf(message.msg.CMoveRSP);
}

RequestorAssociation::Context Retriever::receiving(const std::string& syntax, T_ASC_SC_ROLE role) {
    return {UID_CTImageStorage, {syntax}, role};
}

Retriever::Retriever(const QString& port, const std::vector<Context>& toReceive, const std::string& calling)
    : RequestorAssociation(port, calling, "TESSALY", withFixed(toReceive)) {}

DIC_US Retriever::ask(ContextId context, const char* level, const std::vector<AskedKey>& keys,
                      const std::string& destination) {
    T_DIMSE_Message message{};
    DcmDataset sent = identifier(level, keys);
    const DIC_US id = raw()->nextMsgID++;
    const auto fill = [&](auto& request) {
        request.MessageID = id;
        OFStandard::strlcpy(request.AffectedSOPClassUID, sopClassOf(context), sizeof(DIC_UI));
        request.Priority = DIMSE_PRIORITY_MEDIUM;
        request.DataSetType = DIMSE_DATASET_PRESENT;
    };
    if (destination.empty()) {
        message.CommandField = DIMSE_C_GET_RQ;
        fill(message.msg.CGetRQ);
    } else {
        message.CommandField = DIMSE_C_MOVE_RQ;
        fill(message.msg.CMoveRQ);
        OFStandard::strlcpy(message.msg.CMoveRQ.MoveDestination, destination.c_str(), sizeof(DIC_AE));
    }
    check(DIMSE_sendMessageUsingMemoryData(raw(), context, &message, nullptr, &sent, nullptr, nullptr));
    return id;
}

DIC_US Retriever::askWithBytes(ContextId context, std::span<const char> identifier,
                               const std::string& destination) {
    const DIC_US id = writeCommand(context, destination.empty() ? DIMSE_C_GET_RQ : DIMSE_C_MOVE_RQ,
                                   sopClassOf(context), {}, !identifier.empty(), destination);
    writeParts(context, false, identifier, true);
    return id;
}

void Retriever::cancel(ContextId context, DIC_US messageId) {
    check(DIMSE_sendCancelRequest(raw(), context, messageId));
}

RetrievalMessage Retriever::hearStore() {
    RetrievalMessage heard = hear();
    while (heard.isPending())
        heard = hear();
    return heard;
}

RetrievalMessage Retriever::hear() {
    RetrievalMessage heard;
    DcmDataset* detail = nullptr;
    heard.arrived = DIMSE_receiveCommand(raw(), DIMSE_NONBLOCKING, PatienceSeconds, &heard.context,
                                         &heard.message, &detail)
                        .good();
    heard.detail.reset(detail);
    if (!heard.isStore())
        return heard;
    dicom::SinkStream stream{[&heard](std::span<const char> part) {
        heard.dataSet.append(part.data(), static_cast<qsizetype>(part.size()));
    }};
    T_ASC_PresentationContextID context = 0;
    check(DIMSE_receiveDataSetInFile(raw(), DIMSE_NONBLOCKING, PatienceSeconds, &context, &stream, nullptr,
                                     nullptr));
    return heard;
}

void Retriever::answerStore(const RetrievalMessage& store, DIC_US status) {
    T_DIMSE_C_StoreRSP response{};
    response.DimseStatus = status;
    check(DIMSE_sendStoreResponse(raw(), store.context, &store.message.msg.CStoreRQ, &response, nullptr));
}

Retrieved Retriever::collect(const Status& status) {
    Retrieved all;
    for (;;) {
        RetrievalMessage heard = hear();
        if (!heard.arrived)
            return all;
        if (heard.isStore()) {
            const std::string uid = heard.message.msg.CStoreRQ.AffectedSOPInstanceUID;
            all.objects[QString::fromStdString(uid)] = heard.dataSet;
            all.contexts[QString::fromStdString(uid)] = heard.context;
            answerStore(heard, status ? status(uid) : DIC_US{STATUS_Success});
            continue;
        }
        if (heard.isPending()) {
            all.pending << heard.progress();
            continue;
        }
        all.status = statusOf(heard.message);
        all.counters = heard.progress();
        const auto dataSetType = heard.message.CommandField == DIMSE_C_GET_RSP
                                     ? heard.message.msg.CGetRSP.DataSetType
                                     : heard.message.msg.CMoveRSP.DataSetType;
        if (dataSetType != DIMSE_DATASET_NULL) {
            DcmDataset* identifier = nullptr;
            T_ASC_PresentationContextID context = 0;
            check(DIMSE_receiveDataSetInMemory(raw(), DIMSE_NONBLOCKING, PatienceSeconds, &context,
                                               &identifier, nullptr, nullptr));
            const std::unique_ptr<DcmDataset> owned{identifier};
            OFString uids;
            owned->findAndGetOFStringArray(DCM_FailedSOPInstanceUIDList, uids);
            all.failed = QString::fromUtf8(uids.c_str()).split(u'\\', Qt::SkipEmptyParts);
            all.failed.sort();
        }
        if (heard.detail) {
            OFString comment;
            heard.detail->findAndGetOFString(DCM_ErrorComment, comment);
            all.comment = comment;
            DcmElement* offending = nullptr;
            if (heard.detail->findAndGetElement(DCM_OffendingElement, offending).good())
                offending->getTagVal(all.offending);
        }
        return all;
    }
}

}  // namespace tessaly::test
