#include "dicom/net/OutboundAssociation.h"

#include <dcmtk/dcmnet/cond.h>
#include <dcmtk/dcmnet/dimse.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>

#include "dicom/net/AssociationEnded.h"
#include "dicom/net/HostLookup.h"

namespace tessaly::dicom {

using Clock = IoLimits::Clock;
using Kind = AssociationFailure::Kind;

namespace {

constexpr std::chrono::seconds ReleaseLimit{1};

/// What the toolkit is told, in whole seconds; the limits of the transport are the exact ones.
int seconds(std::chrono::milliseconds limit) {
    return static_cast<int>(std::chrono::ceil<std::chrono::seconds>(limit).count());
}

/// One at least: to the toolkit, none is a glance.
std::chrono::seconds secondsUntil(Clock::time_point until) {
    using std::chrono::seconds;
    return std::max(std::chrono::ceil<seconds>(until - Clock::now()), seconds{1});
}

/// A fault of this side's.
void check(const OFCondition& condition) {
    if (condition.bad())
        throw std::runtime_error(condition.text());
}

}  // namespace

OutboundAssociation::OutboundAssociation(const OutboundLimits& limits, const std::stop_token& stop,
                                         const OutboundTrace& trace)
    : limits_(limits),
      trace_(trace),
      transport_(std::make_shared<IoLimits>(stop, limits.deadline, limits.pace), trace.traffic) {
    check(ASC_initializeNetwork(NET_REQUESTOR, 0, seconds(limits.answer), &network_));
    check(ASC_setTransportLayer(network_, &transport_, 0));
}

OutboundAssociation::~OutboundAssociation() {
    messages_.reset();
    if (association_ != nullptr) {
        ASC_dropAssociation(association_);
        ASC_destroyAssociation(&association_);
    }
    ASC_dropNetwork(&network_);
}

std::string OutboundAssociation::connect(const PeerAddress& peer) {
    const auto until = [this](Clock::time_point end) { return std::min(end, limits_.deadline); };
    const auto reached = until(Clock::now() + limits_.reach);
    const auto resolved = std::min(reached, Clock::now() + limits_.resolve);
    HostAddresses host = lookUpHost(peer.host, resolved, ioLimits().stop());
    if (ioLimits().isStopped())
        throw AssociationFailure{Kind::Stopped, "stopped"};
    if (!host.failure.empty())
        throw AssociationFailure{Kind::Unreachable, host.failure};
    if (host.addresses.empty())
        throw AssociationFailure{Kind::TimedOut, "nobody resolves the host's name"};
    for (SocketAddress& address : host.addresses)
        address.setPort(peer.port);
    ioLimits().setDeadline(reached);
    const auto connected = transport_.connect(host.addresses, limits_.connect);
    const int reason = errno;
    if (ioLimits().isStopped())
        throw AssociationFailure{Kind::Stopped, "stopped"};
    if (!connected)
        throw AssociationFailure{reason == ETIMEDOUT ? Kind::TimedOut : Kind::Unreachable,
                                 std::generic_category().message(reason)};
    return *connected;
}

void OutboundAssociation::request(const PeerAddress& peer, const std::string& address,
                                  const std::vector<ProposedContext>& contexts) {
    T_ASC_Parameters* parameters = nullptr;  // the association takes it over
    check(ASC_createAssociationParameters(&parameters, ASC_DEFAULTMAXPDU));
    std::array<char, HOST_NAME_MAX + 1> self{};
    (void)gethostname(self.data(), self.size() - 1);
    ASC_setAPTitles(parameters, peer.callingAeTitle.c_str(), peer.calledAeTitle.c_str(), nullptr);
    ASC_setPresentationAddresses(parameters, self.data(), address.c_str());
    int id = 1;
    for (const ProposedContext& context : contexts) {
        std::vector<const char*> syntaxes;
        for (const std::string& syntax : context.transferSyntaxes)
            syntaxes.push_back(syntax.c_str());
        ASC_addPresentationContext(parameters, static_cast<T_ASC_PresentationContextID>(id),
                                   context.sopClass.c_str(), syntaxes.data(),
                                   static_cast<int>(syntaxes.size()), roleSelection(context.roles));
        id += 2;
    }
    ioLimits().setDeadline(std::min(limits_.deadline, Clock::now() + limits_.answer));
    const OFCondition requested = ASC_requestAssociation(network_, parameters, &association_, nullptr,
                                                         nullptr, DUL_NOBLOCK, seconds(limits_.answer));
    if (requested.bad())
        throw failure(requested);
    ioLimits().setDeadline(limits_.deadline);
}

void OutboundAssociation::learnContexts() {
    T_ASC_Parameters* const parameters = association_->params;
    if (trace_.association)
        trace_.association(parameters, ASC_ASSOC_AC);
    const int count = ASC_countPresentationContexts(parameters);
    for (int i = 0; i < count; ++i) {
        T_ASC_PresentationContext context;
        if (ASC_getPresentationContext(parameters, i, &context).bad() ||
            context.resultReason != ASC_P_ACCEPTANCE)
            continue;
        contexts_.push_back({.id = context.presentationContextID,
                             .sopClass = context.abstractSyntax,
                             .transferSyntax = context.acceptedTransferSyntax,
                             .roles = rolesOf(context.acceptedRole)});
    }
    messages_ = std::make_unique<MessageStream>(*association_, trace_.message);
}

void OutboundAssociation::setSendingDeadline(Clock::time_point until) {
    ioLimits().setDeadline(std::min(limits_.deadline, until));
}

bool OutboundAssociation::waitForMessage(Clock::time_point until) {
    ioLimits().setDeadline(limits_.deadline);
    bool hasCome = messages_->hasMore();  // a deadline that is over would look like the end
    if (!hasCome) {
        ioLimits().setDeadline(std::min(limits_.deadline, until));
        hasCome = ASC_dataWaiting(association_, static_cast<int>(secondsUntil(until).count()));
        ioLimits().setDeadline(limits_.deadline);
    }
    return hasCome && !ioLimits().isStopped();
}

MessageStream::Received OutboundAssociation::receive(Clock::time_point until) {
    ioLimits().setDeadline(std::min(limits_.deadline, until));
    auto received = messages_->receive(secondsUntil(until));
    ioLimits().setDeadline(limits_.deadline);
    return received;
}

bool OutboundAssociation::receiveDataSet(Clock::time_point until, const MessageStream::Sink& sink) {
    ioLimits().setDeadline(std::min(limits_.deadline, until));
    const bool belongs = messages_->receiveDataSet(secondsUntil(until), sink);
    ioLimits().setDeadline(limits_.deadline);
    return belongs;
}

Command OutboundAssociation::receiveResponse(std::uint16_t messageId, std::chrono::milliseconds limit) {
    auto response = receive(Clock::now() + limit).command;
    if (!response.isResponse() || response.messageId() != messageId)
        throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    return response;
}

AssociationFailure OutboundAssociation::failure(const OFCondition& reason) const {
    if (ioLimits().isStopped())
        return {Kind::Stopped, "stopped"};
    if (reason == DUL_ASSOCIATIONREJECTED) {
        T_ASC_RejectParameters rejection{};
        ASC_getRejectParameters(association_->params, &rejection);
        OFString words;
        return {Kind::Rejected, ASC_printRejectParameters(words, &rejection), rejection};
    }
    if (ioLimits().isExpired() || reason == DUL_READTIMEOUT || reason == DIMSE_NODATAAVAILABLE)
        return {Kind::TimedOut, reason.text()};
    const bool isOver = reason == DUL_PEERABORTEDASSOCIATION || reason == DUL_PEERREQUESTEDRELEASE ||
                        reason == DUL_NETWORKCLOSED || reason.code() == DULC_TCPIOERROR;
    return {isOver ? Kind::Aborted : Kind::Faulty, reason.text()};
}

void OutboundAssociation::release() {
    ioLimits().setDeadline(std::min(ioLimits().deadline(), Clock::now() + ReleaseLimit));
    ASC_releaseAssociation(association_);
}

void OutboundAssociation::abort() {
    ioLimits().setDeadline(std::min(ioLimits().deadline(), Clock::now()));
    ASC_abortAssociation(association_);
}

std::unique_ptr<OutboundAssociation> openAssociation(const PeerAddress& peer,
                                                     const std::vector<ProposedContext>& contexts,
                                                     const OutboundLimits& limits,
                                                     const std::stop_token& stop,
                                                     const OutboundTrace& trace) {
    std::unique_ptr<OutboundAssociation> opened{new OutboundAssociation{limits, stop, trace}};
    opened->request(peer, opened->connect(peer), contexts);
    opened->learnContexts();
    return opened;
}

}  // namespace tessaly::dicom
