#include "tessalyd/association/AssociationHandler.h"

#include <algorithm>
#include <exception>

#include "base/Text.h"
#include "tessalyd/Log.h"
#include "tessalyd/association/Association.h"

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
std::string summaries(const PeerServices& peer) {
    std::string all;
    for (const auto& service : peer.services) {
        if (const std::string one = service->summary(); !one.empty())
            all += ", " + one;
    }
    return all;
}

/// What a node without the right is told, and the log.
RequestFailure notAuthorized(Right right, const Association& association) {
    constexpr std::uint16_t NotAuthorized = 0x0124;
    const std::string what = right == Right::Print ? "print" : "query";
    association.log(PeerLog::Event::Refusal, "refused: no node with this AE title may " + what);
    return {NotAuthorized, "The calling AE title may not " + what + " here"};
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
    if (const auto rejection = checkProtocol(association_->params))
        return reject(*rejection);
    if (const auto rejection = checkTitles(*port_, names_.callingAeTitle, names_.calledAeTitle))
        return reject(*rejection);
    if (listening_.stop_requested())
        return reject(Rejection::NotListening);
    auto entry = shared_.open.open(names_, peer(), placesOf(*port_));
    if (!entry)
        return reject(Rejection::LimitExceeded);
    entry_.emplace(std::move(*entry));
    const PeerServices peerServices = shared_.services(*port_, names_);
    const Negotiated negotiated = negotiate(association_->params, peerServices.services);
    Association association{*association_, *port_,         names_,     negotiated.contexts,
                            stop_,         shared_.limits, shared_.log};
    if (const OFCondition sent = ASC_acknowledgeAssociation(association_.get()); sent.bad()) {
        shared_.log.add(PeerLog::Event::Fault, names_.text() + ": not accepted: " + sent.text());
        return;
    }
    shared_.log.add(PeerLog::Event::Association, names_.text() + ": association accepted");
    dump("accepted", ASC_ASSOC_AC);
    try {
        serve(association, negotiated, peerServices);
    } catch (const AssociationEnded& ended) {
        end(ended.reason());
    }
    shared_.log.add(PeerLog::Event::Association,
                    names_.text() + ": association ended" + summaries(peerServices));
}

void AssociationHandler::reject(Rejection rejection) {
    shared_.log.add(PeerLog::Event::Rejection,
                    names_.text() + ": association rejected: " + description(rejection));
    connection_.stage = AssociationThreads::Stage::Ending;
    const T_ASC_RejectParameters parameters = parametersOf(rejection);
    if (ASC_rejectAssociation(association_.get(), &parameters).good())
        ASC_dropSCPAssociation(association_.get(), CloseTimeout);
}

void AssociationHandler::serve(Association& association, const Negotiated& negotiated,
                               const PeerServices& peerServices) {
    std::vector<Service*> withNews;
    for (const auto& service : peerServices.services)
        if (service->hasNews(association))
            withNews.push_back(service.get());
    std::function<void()> whileIdle;
    if (!withNews.empty())
        whileIdle = [&] {
            for (Service* service : withNews)
                service->whileIdle(association);
        };
    for (;;) {
        entry_->setIdle();
        const Request request = association.receiveRequest(whileIdle);
        entry_->setBusy();
        try {
            dispatch(request, association, negotiated, peerServices.nodes.get());
        } catch (const RequestFailure& failure) {
            association.respond(request, failure);
        }
    }
}

void AssociationHandler::dispatch(const Request& request, Association& association,
                                  const Negotiated& negotiated, const RemoteNodes* nodes) const {
    const auto found = negotiated.targets.find(request.context->id);
    const Negotiated::Target target =
        found == negotiated.targets.end() ? Negotiated::Target{} : found->second;
    const auto isOneOf = [field = request.command.field()](std::span<const CommandField> commands) {
        return std::find(commands.begin(), commands.end(), field) != commands.end();
    };
    if (target.service == nullptr || !isOneOf(target.service->commands())) {
        constexpr std::uint16_t UnrecognizedOperation = 0x0211;
        association.log(PeerLog::Event::Fault, "a request that the service of its context does not have");
        throw RequestFailure{UnrecognizedOperation, "The service does not have this operation"};
    }
    const bool isAuthorized =
        target.right == Right::None || (nodes != nullptr && nodes->has(target.right, names_.callingAeTitle));
    if (!isAuthorized)
        throw notAuthorized(target.right, association);
    target.service->answer(request, association);
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
