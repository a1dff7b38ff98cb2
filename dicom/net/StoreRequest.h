#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dicom/data/OutgoingObject.h"
#include "dicom/net/MessageStream.h"

namespace tessaly::dicom {

/// Who has asked by C-MOVE for what is sent.
struct MoveOriginator {
    std::string aeTitle;
    std::uint16_t messageId = 0;
};

/// What has become of an object that was to be sent.
struct SendResult {
    enum class Outcome { Success, Warning, Failed, Stopped };
    Outcome outcome = Outcome::Success;
    std::uint16_t status = 0;  ///< of the peer's response; 0 where there is none
    std::string detail;        ///< of what is no success, for the log
    std::string comment;       ///< the peer's own words, which may be of a patient
};

/// What the response to a C-STORE means.
[[nodiscard]] SendResult resultOf(const Command& response);

/// One C-STORE request over an open association, of which this is the requestor or, within a C-GET, the
/// acceptor. Its response is the caller's to wait for.
class StoreRequest {
  public:
    /// `buffer` is working space that may be used for the next object again.
    StoreRequest(MessageStream& messages, T_ASC_PresentationContextID context, std::uint16_t messageId,
                 std::vector<char>& buffer)
        : messages_(messages), context_(context), messageId_(messageId), buffer_(buffer) {}

    /// Sends the command and the object, its bytes as it gives them; the object must be in the syntax of the
    /// context. Throws AssociationEnded, and what the object throws if it cannot be read.
    void send(OutgoingObject& object, const MoveOriginator* originator = nullptr);
    /// Whether something has gone out: if the object cannot be read after that, the association cannot be
    /// used any more.
    [[nodiscard]] bool hasBegun() const noexcept { return begun_; }

  private:
    [[nodiscard]] Command command(const OutgoingObject& object, const MoveOriginator* originator) const;

    MessageStream& messages_;
    T_ASC_PresentationContextID context_;
    std::uint16_t messageId_;
    std::vector<char>& buffer_;
    bool begun_ = false;
};

}  // namespace tessaly::dicom
