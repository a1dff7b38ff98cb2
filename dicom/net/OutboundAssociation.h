#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

#include "dicom/net/MessageStream.h"
#include "dicom/net/PeerAddress.h"
#include "dicom/net/PresentationContext.h"
#include "dicom/net/transport/BoundedTransport.h"

namespace tessaly::dicom {

/// There is no association with a peer, or none any more.
class AssociationFailure : public std::runtime_error {
  public:
    enum class Kind {
        Stopped,      ///< by the caller
        TimedOut,     ///< no answer in time, to the look-up, the connection or a message
        Unreachable,  ///< the name does not resolve, or nobody takes the connection
        Rejected,     ///< A-ASSOCIATE-RJ
        Aborted,      ///< A-ABORT, or the connection closed
        Faulty        ///< something that breaks the protocol
    };
    AssociationFailure(Kind kind, const std::string& description,
                       const T_ASC_RejectParameters& rejection = {})
        : std::runtime_error(description), kind_(kind), rejection_(rejection) {}

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    /// The source and the reason, as the protocol numbers them; of a rejection alone.
    [[nodiscard]] int rejectSource() const noexcept { return rejection_.source; }
    [[nodiscard]] int rejectReason() const noexcept { return rejection_.reason & 0xff; }

  private:
    Kind kind_;
    T_ASC_RejectParameters rejection_;  // the library adds the source to the reason
};

/// How long an association of ours may take to stand, and to do what it is for.
struct OutboundLimits {
    std::chrono::milliseconds resolve{10'000};  ///< for the look-up of the host's name
    std::chrono::milliseconds connect{10'000};  ///< for the TCP connection
    std::chrono::milliseconds reach{10'000};    ///< for these two together
    std::chrono::milliseconds answer{60'000};   ///< for the peer's answer to the association request
    IoLimits::Clock::time_point deadline = IoLimits::NoDeadline;  ///< for everything, its use included
    Pace pace = {};                                               ///< that the peer keeps in each direction
};

/// Sees what goes over the wire, for dumps; each may be missing.
struct OutboundTrace {
    BoundedTransport::Traffic traffic;
    std::function<void(T_ASC_Parameters*, ASC_associateType)> association;
    MessageStream::Trace message;
};

/// An association that was asked for by this side. Belongs to one thread. Closed without a word when it is
/// destroyed.
class OutboundAssociation {
  public:
    ~OutboundAssociation();
    OutboundAssociation(const OutboundAssociation&) = delete;
    OutboundAssociation& operator=(const OutboundAssociation&) = delete;

    /// Those that the peer has accepted, in the order in which they were proposed.
    [[nodiscard]] const std::vector<AcceptedContext>& contexts() const noexcept { return contexts_; }
    [[nodiscard]] MessageStream& messages() noexcept { return *messages_; }
    /// The next message, which has to be the response to the request with this ID and whole within the limit.
    /// Throws AssociationEnded.
    [[nodiscard]] Command receiveResponse(std::uint16_t messageId, std::chrono::milliseconds limit);
    /// For what is sent from now on, until something is received.
    void setSendingDeadline(IoLimits::Clock::time_point until);
    /// Whether a message has begun to come by then, or the connection is over; false after a stop too.
    [[nodiscard]] bool waitForMessage(IoLimits::Clock::time_point until);
    /// The next message, whatever it is, its command set whole by then. Throws AssociationEnded.
    [[nodiscard]] MessageStream::Received receive(IoLimits::Clock::time_point until);
    /// Takes its data set, whole by then, as MessageStream does.
    [[nodiscard]] bool receiveDataSet(IoLimits::Clock::time_point until, const MessageStream::Sink& sink);

    /// What AssociationEnded means here.
    [[nodiscard]] AssociationFailure failure(const OFCondition& reason) const;

    /// A courtesy to the peer, which has a second for its part of it.
    void release();
    /// The peer is told, if the system takes that at once.
    void abort();

  private:
    friend std::unique_ptr<OutboundAssociation> openAssociation(const PeerAddress&,
                                                                const std::vector<ProposedContext>&,
                                                                const OutboundLimits&, const std::stop_token&,
                                                                const OutboundTrace&);
    OutboundAssociation(const OutboundLimits& limits, const std::stop_token& stop,
                        const OutboundTrace& trace);

    [[nodiscard]] std::string connect(const PeerAddress& peer);
    void request(const PeerAddress& peer, const std::string& address,
                 const std::vector<ProposedContext>& contexts);
    void learnContexts();
    [[nodiscard]] IoLimits& ioLimits() const noexcept { return transport_.ioLimits(); }

    OutboundLimits limits_;
    OutboundTrace trace_;
    BoundedTransport transport_;
    T_ASC_Network* network_ = nullptr;
    T_ASC_Association* association_ = nullptr;
    std::vector<AcceptedContext> contexts_;
    std::unique_ptr<MessageStream> messages_;
};

/// The one way out: looks the host up, connects, proposes the contexts (odd IDs from 1 on, in their order)
/// and reads the answer. Blocks within the limits; a stop ends it at once. The peer may have accepted none of
/// the contexts. Throws AssociationFailure, and std::runtime_error where this side has no socket.
[[nodiscard]] std::unique_ptr<OutboundAssociation> openAssociation(
    const PeerAddress& peer, const std::vector<ProposedContext>& contexts, const OutboundLimits& limits,
    const std::stop_token& stop, const OutboundTrace& trace = {});

}  // namespace tessaly::dicom
