#include "tessalyd/association/AssociationHandler.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <exception>

#include "tessalyd/Log.h"
#include "tessalyd/archive/ArchiveWriter.h"
#include "tessalyd/archive/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

/// Seconds between two messages of an association; a peer that is gone is noticed earlier.
constexpr int IdlePatience = 900;
/// Seconds between two parts of one message.
constexpr int MessagePatience = 60;
/// Seconds that a peer has for closing its side of the connection.
constexpr int ClosePatience = 5;

/// What a peer sent, fit for the log and for the session bus.
std::string printable(const char* sent) {
    std::string text = trimmed(sent);
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c == '\x7f'; }, '?');
    return text;
}

AssociationNames namesOf(const PortConfiguration& port, T_ASC_Parameters* parameters) {
    DIC_AE calling{};
    DIC_AE called{};
    ASC_getAPTitles(parameters, calling, sizeof calling, called, sizeof called, nullptr, 0);
    return {.port = port.port, .callingAETitle = printable(calling), .calledAETitle = printable(called)};
}

std::string names(const AssociationNames& association) {
    return association.callingAETitle + " > " + association.calledAETitle + " on port " + association.port;
}

DcmDataset errorComment(const std::string& comment) {
    DcmDataset detail;
    detail.putAndInsertString(DCM_ErrorComment, comment.c_str());
    return detail;
}

}  // namespace

AssociationHandler::AssociationHandler(const AssociationServices& services,
                                       std::shared_ptr<const PortConfiguration> port,
                                       Interrupter& interrupter, std::stop_token listening)
    : services_(services),
      port_(std::move(port)),
      interrupter_(interrupter),
      listening_(std::move(listening)) {}

void AssociationHandler::run(FileDescriptor socket) noexcept {
    try {
        const OFCondition received =
            services_.transport.receive(std::move(socket), interrupter_, association_);
        if (received.good())
            answer();
        else
            OFLOG_WARN(serverLog(),
                       "port " << port_->port << ": no association request: " << received.text());
    } catch (const std::exception& fault) {
        OFLOG_ERROR(serverLog(), "port " << port_->port << ": association given up: " << fault.what());
    }
}

void AssociationHandler::answer() {
    dump("requested", ASC_ASSOC_RQ);
    names_ = namesOf(*port_, association_->params);
    if (const auto refusal = checkProtocol(association_->params))
        return reject(*refusal);
    if (const auto refusal = checkTitles(*port_, names_.callingAETitle, names_.calledAETitle))
        return reject(*refusal);
    if (listening_.stop_requested())
        return reject(Refusal::NotListening);
    auto entry = services_.open.open(names_, port_->maxConnections);
    if (!entry)
        return reject(Refusal::LimitExceeded);
    entry_.emplace(std::move(*entry));
    negotiate(association_->params);
    if (const OFCondition sent = ASC_acknowledgeAssociation(association_.get()); sent.bad()) {
        OFLOG_WARN(serverLog(), names(names_).c_str() << ": not accepted: " << sent.text());
        return;
    }
    OFLOG_INFO(serverLog(), names(names_).c_str() << ": association accepted");
    dump("accepted", ASC_ASSOC_AC);
    serve();
    OFLOG_INFO(serverLog(), names(names_).c_str() << ": association ended, " << stored_ << " objects stored, "
                                                  << refused_ << " not stored");
}

void AssociationHandler::reject(Refusal refusal) {
    OFLOG_INFO(serverLog(), names(names_).c_str() << ": association rejected: " << description(refusal));
    const T_ASC_RejectParameters parameters = rejection(refusal);
    if (ASC_rejectAssociation(association_.get(), &parameters).good())
        ASC_dropSCPAssociation(association_.get(), ClosePatience);
}

void AssociationHandler::serve() {
    OFCondition condition = EC_Normal;
    while (condition.good()) {
        T_ASC_PresentationContextID context = 0;
        T_DIMSE_Message message{};
        condition = receiveCommand(context, message);
        if (condition.good())
            condition = handle(context, message);
    }
    end(condition);
}

OFCondition AssociationHandler::receiveCommand(T_ASC_PresentationContextID& context,
                                               T_DIMSE_Message& message) {
    const OFCondition received = DIMSE_receiveCommand(association_.get(), DIMSE_NONBLOCKING, IdlePatience,
                                                      &context, &message, nullptr);
    if (received.good())
        dump(message, DIMSE_INCOMING);
    return received;
}

OFCondition AssociationHandler::handle(T_ASC_PresentationContextID context, T_DIMSE_Message& message) {
    switch (message.CommandField) {
        case DIMSE_C_ECHO_RQ:
            return DIMSE_sendEchoResponse(association_.get(), context, &message.msg.CEchoRQ, STATUS_Success,
                                          nullptr);
        case DIMSE_C_STORE_RQ:
            return store(context, message.msg.CStoreRQ);
        default:
            return DIMSE_BADCOMMANDTYPE;
    }
}

OFCondition AssociationHandler::store(T_ASC_PresentationContextID context, T_DIMSE_C_StoreRQ& request) {
    T_DIMSE_Message answer{};
    answer.CommandField = DIMSE_C_STORE_RSP;
    T_DIMSE_C_StoreRSP& response = answer.msg.CStoreRSP;
    std::string comment;
    if (request.DataSetType == DIMSE_DATASET_NULL)
        return DIMSE_BADCOMMANDTYPE;
    if (const OFCondition received = receiveObject(context, request, response, comment); received.bad())
        return received;
    dump(answer, DIMSE_OUTGOING);
    DcmDataset detail = errorComment(comment);
    return DIMSE_sendStoreResponse(association_.get(), context, &request, &response,
                                   comment.empty() ? nullptr : &detail);
}

/// A bad result is the connection's; what is wrong with the object is in the response.
OFCondition AssociationHandler::receiveObject(T_ASC_PresentationContextID context,
                                              const T_DIMSE_C_StoreRQ& request, T_DIMSE_C_StoreRSP& response,
                                              std::string& comment) {
    T_ASC_PresentationContext accepted;
    if (const OFCondition found =
            ASC_findAcceptedPresentationContext(association_->params, context, &accepted);
        found.bad())
        return found;
    ArchiveWriter writer{*port_,
                         services_.index,
                         {.sopClassUid = request.AffectedSOPClassUID,
                          .sopInstanceUid = request.AffectedSOPInstanceUID,
                          .syntax = DcmXfer{accepted.acceptedTransferSyntax}.getXfer(),
                          .sender = names_.callingAETitle},
                         buffer_};
    T_ASC_PresentationContextID dataContext = 0;
    const OFCondition received =
        DIMSE_receiveDataSetInFile(association_.get(), DIMSE_NONBLOCKING, MessagePatience, &dataContext,
                                   &writer.stream(), nullptr, nullptr);
    if (received.bad())
        return received;
    try {
        if (dataContext != context)
            throw StoreFailure{STATUS_STORE_Error_CannotUnderstand,
                               "Command and data set do not belong together"};
        if (std::string_view{accepted.abstractSyntax} != request.AffectedSOPClassUID)
            throw StoreFailure{STATUS_STORE_Refused_SOPClassNotSupported,
                               "The SOP class is not that of the presentation context"};
        writer.finish();
        response.DimseStatus = STATUS_Success;
        ++stored_;
        OFLOG_DEBUG(serverLog(), names(names_).c_str() << ": stored " << request.AffectedSOPInstanceUID);
    } catch (const StoreFailure& failure) {
        response.DimseStatus = failure.status();
        comment = failure.what();
        ++refused_;
        OFLOG_ERROR(serverLog(), names(names_).c_str() << ": " << request.AffectedSOPInstanceUID
                                                       << " not stored: " << comment.c_str() << ": "
                                                       << failure.detail().c_str());
    }
    return EC_Normal;
}

void AssociationHandler::end(const OFCondition& reason) {
    entry_.reset();  // its place is free when the peer has the answer, not when it closes the connection
    if (reason == DUL_PEERREQUESTEDRELEASE) {
        ASC_acknowledgeRelease(association_.get());
        ASC_dropSCPAssociation(association_.get(), ClosePatience);
    } else if (interrupter_.interrupted()) {
        OFLOG_INFO(serverLog(), names(names_).c_str() << ": aborted, as the server is being stopped");
        ASC_abortAssociation(association_.get());
    } else if (reason == DUL_PEERABORTEDASSOCIATION) {
        OFLOG_INFO(serverLog(), names(names_).c_str() << ": aborted by the peer");
    } else {
        OFLOG_WARN(serverLog(), names(names_).c_str() << ": aborted: " << reason.text());
        ASC_abortAssociation(association_.get());
    }
}

void AssociationHandler::dump(const char* what, ASC_associateType type) const {
    const OFLogger& log = dumpLog(Dump::Association);
    if (!log.isEnabledFor(OFLogger::DEBUG_LOG_LEVEL))
        return;
    OFString text;
    ASC_dumpParameters(text, association_->params, type);
    OFLOG_DEBUG(log, "association " << what << OFendl << text);
}

void AssociationHandler::dump(T_DIMSE_Message& message, DIMSE_direction direction) const {
    const OFLogger& log = dumpLog(Dump::Vr);
    if (!log.isEnabledFor(OFLogger::DEBUG_LOG_LEVEL))
        return;
    OFString text;
    DIMSE_dumpMessage(text, message, direction);
    OFLOG_DEBUG(log, text);
}

}  // namespace tessaly::tessalyd
