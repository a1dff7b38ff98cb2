#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "dicom/data/OutgoingObject.h"
#include "dicom/net/ContextPlan.h"
#include "dicom/net/OutboundAssociation.h"
#include "dicom/net/StoreRequest.h"
#include "dicom/net/transport/BoundedTransport.h"

namespace tessaly::dicom {

struct Destination {
    std::string host;  ///< a name, or an IPv4 address in dotted form
    std::uint16_t port = 0;
    std::string callingAeTitle;
    std::string calledAeTitle;
};

/// Sends objects to one peer by C-STORE, one after the other. Usable on any thread, by one at a time; it
/// blocks, and comes back at once when it is stopped. The association is opened when the first object is
/// sent; where the objects need more contexts than one has, there are several, one after the other.
class ObjectSender {
  public:
    struct Limits {
        std::chrono::milliseconds connect{10'000};  ///< for the host's name and the TCP connection
        /// A peer that takes less than Pace::LeastRate for as long has failed; an answer is to be whole by
        /// then.
        std::chrono::milliseconds silence{60'000};
    };
    /// Sees what goes over the wire, for dumps; each may be missing.
    struct Trace {
        BoundedTransport::Traffic traffic;
        std::function<void(T_ASC_Parameters*, ASC_associateType)> association;
        std::function<void(T_DIMSE_Message&, DIMSE_direction)> message;
    };

    /// `kinds` are those of the objects that are going to be sent, in any order and more than once if need
    /// be. Throws std::system_error.
    ObjectSender(Destination destination, const std::vector<ObjectKind>& kinds, const std::stop_token& stop,
                 const Limits& limits, Trace trace = {});
    ObjectSender(Destination destination, const std::vector<ObjectKind>& kinds, const std::stop_token& stop)
        : ObjectSender(std::move(destination), kinds, stop, Limits{}) {}
    /// Releases what is open.
    ~ObjectSender();
    ObjectSender(const ObjectSender&) = delete;
    ObjectSender& operator=(const ObjectSender&) = delete;

    /// The number of the association that objects of the SOP class go over. Objects are best sent in the
    /// order of these numbers: each change of them is a release and a new association.
    [[nodiscard]] std::size_t associationOf(const std::string& sopClass) const {
        return plan_.associationOf(sopClass).value_or(0);
    }

    /// Sends one object: its bytes as they are where the peer takes its syntax, otherwise in little endian.
    [[nodiscard]] SendResult send(OutgoingObject& object, const MoveOriginator* originator = nullptr);

    /// Why nothing can be sent any more: the peer has failed, or it was stopped. What is still to be sent
    /// fails at once then.
    [[nodiscard]] const std::optional<SendResult>& failure() const noexcept { return failure_; }

  private:
    void open(std::size_t association);
    void learnContexts();
    void close();
    void abort();
    [[nodiscard]] const T_ASC_PresentationContextID* contextFor(const ObjectKind& kind) const;
    [[nodiscard]] SendResult sendOpen(OutgoingObject& object, const MoveOriginator* originator);
    [[nodiscard]] SendResult sendOver(T_ASC_PresentationContextID context, OutgoingObject& object,
                                      const MoveOriginator* originator);
    [[nodiscard]] SendResult receiveAnswer(std::uint16_t messageId);
    [[nodiscard]] SendResult giveUp(const std::string& reason);

    Destination destination_;
    ContextPlan plan_;
    Limits limits_;
    Trace trace_;
    std::stop_token stop_;
    BoundedTransport transport_;
    std::unique_ptr<OutboundAssociation> association_;
    std::size_t number_ = 0;  // of the open one
    std::map<ObjectKind, T_ASC_PresentationContextID> accepted_;
    std::vector<char> buffer_;
    std::optional<SendResult> failure_;
};

}  // namespace tessaly::dicom
