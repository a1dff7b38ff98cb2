#include "tessalyd/association/Requester.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/assoc.h>
#include <dcmtk/dcmnet/dcmtrans.h>
#include <dcmtk/dcmnet/dul.h>
#include <dcmtk/dcmnet/dulstruc.h>

#include <algorithm>

#include "tessalyd/Log.h"

namespace tessaly::tessalyd {

namespace {

struct Head {
    DIC_US messageId = 0;
    bool dataSetFollows = false;
};

Head headOf(const T_DIMSE_Message& message) {
    const auto head = [](const auto& request) {
        return Head{request.MessageID, request.DataSetType != DIMSE_DATASET_NULL};
    };
    switch (message.CommandField) {
        case DIMSE_C_STORE_RQ:
            return head(message.msg.CStoreRQ);
        case DIMSE_C_FIND_RQ:
            return head(message.msg.CFindRQ);
        case DIMSE_C_MOVE_RQ:
            return head(message.msg.CMoveRQ);
        case DIMSE_C_GET_RQ:
            return head(message.msg.CGetRQ);
        case DIMSE_C_ECHO_RQ:
            return {.messageId = message.msg.CEchoRQ.MessageID};
        default:
            return {};
    }
}

/// For the toolkit.
int seconds(std::chrono::seconds timeout) {
    return static_cast<int>(timeout.count());
}

DcmDataset detailOf(const RequestFailure& failure) {
    constexpr std::size_t LongestComment = 64;
    DcmDataset detail;
    detail.putAndInsertString(DCM_ErrorComment,
                              std::string{failure.what()}.substr(0, LongestComment).c_str());
    if (failure.offendingElement())
        detail.putAndInsertTagKey(DCM_OffendingElement, *failure.offendingElement());
    return detail;
}

}  // namespace

Requester::Requester(T_ASC_Association& association, const PortConfiguration& port, AssociationNames names,
                     std::vector<AcceptedContext> contexts, std::stop_token stop,
                     const AssociationLimits& limits, PeerLog& log)
    : association_(association),
      port_(port),
      limits_(limits),
      log_(log),
      names_(std::move(names)),
      contexts_(std::move(contexts)),
      stop_(std::move(stop)) {}

void Requester::require(const OFCondition& condition) {
    if (condition.bad())
        throw AssociationEnded{condition};
}

bool Requester::receiveDataSet(DcmOutputStream& target) {
    dataSetDue_ = false;
    T_ASC_PresentationContextID context = 0;
    require(DIMSE_receiveDataSetInFile(&association_, DIMSE_NONBLOCKING, seconds(limits_.answer), &context,
                                       &target, nullptr, nullptr));
    return context == commandContext_;
}

bool Requester::isCancelled() {
    passOverDataSet();
    while (!cancelled_ && hasMore()) {
        // One request at a time is what has been negotiated: before its answer nothing else may come.
        if (receiveUnlessCancel(limits_.answer))
            throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    }
    return cancelled_;
}

/// Whether a whole message has come from the requester. What the toolkit has read together with the part
/// before, in one PDU, the connection does not see any more.
bool Requester::hasMore() const {
    const auto* const key = static_cast<const PRIVATE_ASSOCIATIONKEY*>(association_.DULassociation);
    return key->pdvIndex >= 0 || ASC_dataWaiting(&association_, 0);
}

Request Requester::receive() {
    return receive(limits_.answer);
}

Request Requester::receiveRequest() {
    cancelled_ = false;
    current_.reset();  // a C-CANCEL that comes too late stops nothing
    Request request = receive(limits_.idle);
    const Head head = headOf(request.message);
    current_ = head.messageId;
    dataSetDue_ = head.dataSetFollows;
    commandContext_ = request.context->id;
    return request;
}

Request Requester::receive(std::chrono::seconds timeout) {
    passOverDataSet();
    std::optional<Request> received;
    while (!received)
        received = receiveUnlessCancel(timeout);
    return *received;
}

std::optional<Request> Requester::receiveUnlessCancel(std::chrono::seconds timeout) {
    T_ASC_PresentationContextID id = 0;
    T_DIMSE_Message message{};
    require(DIMSE_receiveCommand(&association_, DIMSE_NONBLOCKING, seconds(timeout), &id, &message, nullptr));
    dump(message, DIMSE_INCOMING);
    if (message.CommandField == DIMSE_C_CANCEL_RQ) {
        cancelled_ = cancelled_ || current_ == message.msg.CCancelRQ.MessageIDBeingRespondedTo;
        return std::nullopt;
    }
    return Request{.message = message, .context = &context(id)};
}

const AcceptedContext& Requester::context(T_ASC_PresentationContextID id) const {
    const auto found = std::find_if(contexts_.begin(), contexts_.end(),
                                    [id](const AcceptedContext& context) { return context.id == id; });
    if (found == contexts_.end())
        throw AssociationEnded{ASC_BADPRESENTATIONCONTEXTID};
    return *found;
}

void Requester::refuse(const Request& request, const RequestFailure& failure) {
    passOverDataSet();
    DcmDataset detail = detailOf(failure);
    T_DIMSE_Message answer{};
    const auto send = [&](auto& response, const auto& command, auto* sendResponse, auto... identifiers) {
        response.DimseStatus = failure.status();
        dump(answer);
        require(
            sendResponse(&association_, request.context->id, &command, &response, identifiers..., &detail));
    };
    DcmDataset* const none = nullptr;
    const auto& command = request.message.msg;
    answer.CommandField = static_cast<T_DIMSE_Command>(request.message.CommandField | 0x8000);
    switch (request.message.CommandField) {
        case DIMSE_C_STORE_RQ:
            return send(answer.msg.CStoreRSP, command.CStoreRQ, &DIMSE_sendStoreResponse);
        case DIMSE_C_FIND_RQ:
            return send(answer.msg.CFindRSP, command.CFindRQ, &DIMSE_sendFindResponse, none);
        case DIMSE_C_MOVE_RQ:
            return send(answer.msg.CMoveRSP, command.CMoveRQ, &DIMSE_sendMoveResponse, none);
        case DIMSE_C_GET_RQ:
            return send(answer.msg.CGetRSP, command.CGetRQ, &DIMSE_sendGetResponse, none);
        default:
            require(DIMSE_sendEchoResponse(&association_, request.context->id, &command.CEchoRQ,
                                           failure.status(), &detail));
    }
}

void Requester::passOverDataSet() {
    if (!dataSetDue_)
        return;
    dataSetDue_ = false;
    DIC_UL bytes = 0;
    DIC_UL parts = 0;
    require(DIMSE_ignoreDataSet(&association_, DIMSE_NONBLOCKING, seconds(limits_.answer), &bytes, &parts));
}

void Requester::dump(T_DIMSE_Message& message, DIMSE_direction direction) const {
    const OFLogger& log = dumpLog(Dump::Vr);
    if (!log.isEnabledFor(OFLogger::DEBUG_LOG_LEVEL))
        return;
    OFString text;
    DIMSE_dumpMessage(text, message, direction);
    OFLOG_DEBUG(log, text);
}

}  // namespace tessaly::tessalyd
