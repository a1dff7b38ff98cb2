#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "dicom/data/OutgoingObject.h"
#include "dicom/net/ContextPlan.h"
#include "dicom/net/OutboundAssociation.h"
#include "dicom/net/StoreRequest.h"

namespace tessaly::dicom {

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
    /// `kinds` are those of the objects that are going to be sent, in any order and more than once if need
    /// be. Throws std::system_error.
    ObjectSender(PeerAddress peer, const std::vector<ObjectKind>& kinds, std::stop_token stop,
                 const Limits& limits, OutboundTrace trace = {});
    ObjectSender(PeerAddress peer, const std::vector<ObjectKind>& kinds, std::stop_token stop)
        : ObjectSender(std::move(peer), kinds, std::move(stop), Limits{}) {}
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
    void close();
    void abort();
    [[nodiscard]] const AcceptedContext* contextFor(const ObjectKind& kind) const;
    [[nodiscard]] SendResult sendOpen(OutgoingObject& object, const MoveOriginator* originator);
    [[nodiscard]] SendResult sendOver(const AcceptedContext& context, OutgoingObject& object,
                                      const MoveOriginator* originator);
    [[nodiscard]] SendResult giveUp(const std::string& reason);

    PeerAddress peer_;
    ContextPlan plan_;
    Limits limits_;
    OutboundTrace trace_;
    std::stop_token stop_;
    std::unique_ptr<OutboundAssociation> association_;
    std::size_t number_ = 0;  // of the open one
    std::vector<char> buffer_;
    std::optional<SendResult> failure_;
};

}  // namespace tessaly::dicom
