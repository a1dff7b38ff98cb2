#include "tessalyd/association/AssociationHandler.h"

#include <algorithm>
#include <exception>

#include "base/Text.h"
#include "dicom/net/ToolkitNames.h"
#include "tessalyd/Log.h"
#include "tessalyd/association/Negotiation.h"
#include "tessalyd/association/Requester.h"

namespace tessaly::tessalyd {

namespace {

/// Seconds that a peer has for closing its side of the connection.
constexpr int CloseTimeout = 5;

AssociationNames namesOf(const PortConfiguration& port, T_ASC_Parameters* parameters) {
    DIC_AE calling{};
    DIC_AE called{};
    ASC_getAPTitles(parameters, calling, sizeof calling, called, sizeof called, nullptr, 0);
    return {.port = port.port,
            .callingAeTitle = std::string{base::trimmed(calling)},
            .calledAeTitle = std::string{base::trimmed(called)}};
}

/// Each service's summary, for the log.
std::string summaries(const Services& services) {
    std::string all;
    for (const auto& service : services) {
        if (const std::string one = service->summary(); !one.empty())
            all += ", " + one;
    }
    return all;
}

}  // namespace

AssociationHandler::AssociationHandler(const Shared& shared, std::shared_ptr<const PortConfiguration> port,
                                       AssociationThreads::Connection& connection, std::stop_token listening)
    : shared_(shared),
      port_(std::move(port)),
      connection_(connection),
      stop_(connection.stop.get_token()),
      listening_(std::move(listening)) {}

void AssociationHandler::run(base::FileDescriptor socket) noexcept {
    try {
        const OFCondition received = shared_.transport.receive(std::move(socket), stop_, association_);
        if (received.good())
            answer();
        else
            shared_.log.add(PeerLog::Event::Fault,
                            "port " + port_->port + ": no association request: " + received.text());
    } catch (const std::exception& fault) {
        shared_.log.add(PeerLog::Event::Failure,
                        "port " + port_->port + ": association given up: " + fault.what());
    }
}

OpenAssociations::Peer AssociationHandler::peer() const {
    return {.address = connection_.address,
            .isNode = isNode(*port_, names_.callingAeTitle),
            .stop = connection_.stop};
}

void AssociationHandler::answer() {
    connection_.stage = AssociationThreads::Stage::Open;
    dump("requested", ASC_ASSOC_RQ);
    names_ = namesOf(*port_, association_->params);
    names_.address = connection_.address;
    if (const auto refusal = checkProtocol(association_->params))
        return reject(*refusal);
    if (const auto refusal = checkTitles(*port_, names_.callingAeTitle, names_.calledAeTitle))
        return reject(*refusal);
    if (listening_.stop_requested())
        return reject(Refusal::NotListening);
    auto entry = shared_.open.open(names_, peer(), placesOf(*port_));
    if (!entry)
        return reject(Refusal::LimitExceeded);
    entry_.emplace(std::move(*entry));
    const Services services = shared_.services();
    Requester requester{*association_, *port_,         names_,     negotiate(association_->params, services),
                        stop_,         shared_.limits, shared_.log};
    if (const OFCondition sent = ASC_acknowledgeAssociation(association_.get()); sent.bad()) {
        shared_.log.add(PeerLog::Event::Fault, names_.text() + ": not accepted: " + sent.text());
        return;
    }
    shared_.log.add(PeerLog::Event::Association, names_.text() + ": association accepted");
    dump("accepted", ASC_ASSOC_AC);
    dicom::nameForToolkit(*association_->params);
    try {
        serve(requester, services);
    } catch (const AssociationEnded& ended) {
        end(ended.reason());
    }
    shared_.log.add(PeerLog::Event::Association, names_.text() + ": association ended" + summaries(services));
}

void AssociationHandler::reject(Refusal refusal) {
    shared_.log.add(PeerLog::Event::Rejection,
                    names_.text() + ": association rejected: " + description(refusal));
    connection_.stage = AssociationThreads::Stage::Ending;
    const T_ASC_RejectParameters parameters = rejection(refusal);
    if (ASC_rejectAssociation(association_.get(), &parameters).good())
        ASC_dropSCPAssociation(association_.get(), CloseTimeout);
}

void AssociationHandler::serve(Requester& requester, const Services& services) {
    for (;;) {
        entry_->setIdle();
        const Request request = requester.receiveRequest();
        entry_->setBusy();
        const auto service = std::find_if(services.begin(), services.end(), [&request](const auto& one) {
            return one->command() == request.message.CommandField;
        });
        if (service == services.end())
            throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
        try {
            (*service)->answer(request, requester);
        } catch (const RequestFailure& failure) {
            requester.refuse(request, failure);
        }
    }
}

void AssociationHandler::end(const OFCondition& reason) {
    const bool isDisplaced = entry_->isDisplaced();
    entry_.reset();  // its place is free when the peer has the answer, not when it closes the connection
    connection_.stage = AssociationThreads::Stage::Ending;
    const auto log = [this](PeerLog::Event event, const std::string& what) {
        shared_.log.add(event, names_.text() + ": aborted" + what);
    };
    using Event = PeerLog::Event;
    if (reason == DUL_PEERREQUESTEDRELEASE) {
        ASC_acknowledgeRelease(association_.get());
        ASC_dropSCPAssociation(association_.get(), CloseTimeout);
    } else if (isDisplaced) {
        log(Event::Association, ", as another address needs a place and this one has more than half");
        ASC_abortAssociation(association_.get());
    } else if (stop_.stop_requested()) {
        log(Event::Association, ", as the server is being stopped");
        ASC_abortAssociation(association_.get());
    } else if (reason == DUL_PEERABORTEDASSOCIATION) {
        log(Event::Association, " by the peer");
    } else {
        log(Event::Fault, std::string{": "} + reason.text());
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

}  // namespace tessaly::tessalyd
