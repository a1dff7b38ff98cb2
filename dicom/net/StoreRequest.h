#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dimse.h>

#include <cstdint>
#include <string>
#include <vector>

#include "dicom/data/OutgoingObject.h"

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
    std::uint16_t status = 0;  ///< of the peer's answer; 0 where there is none
    std::string detail;        ///< of what is no success, for the log
    std::string comment;       ///< the peer's own words, which may be of a patient
};

/// What an answer's status and comment mean.
[[nodiscard]] SendResult resultOf(std::uint16_t status, const std::string& comment = {});

/// One C-STORE request over an open association, of which this is the requester or, within a C-GET, the other
/// side. Its answer is the caller's to wait for.
class StoreRequest {
  public:
    /// `buffer` is working space that may be used for the next object again.
    StoreRequest(T_ASC_Association& association, T_ASC_PresentationContextID context, std::uint16_t messageId,
                 std::vector<char>& buffer)
        : association_(association), context_(context), messageId_(messageId), buffer_(buffer) {}

    /// Sends the command and the object, its bytes as it gives them; the object must be in the syntax of the
    /// context. A result that is not good is the association's end. Throws what the object throws when it
    /// cannot be read.
    [[nodiscard]] OFCondition send(OutgoingObject& object, const MoveOriginator* originator = nullptr);
    /// Whether something has gone out: if the object cannot be read after that, the association cannot be
    /// used any more.
    [[nodiscard]] bool hasBegun() const noexcept { return begun_; }

    /// What is sent, for a dump.
    [[nodiscard]] T_DIMSE_Message message(const OutgoingObject& object,
                                          const MoveOriginator* originator) const;

  private:
    [[nodiscard]] OFCondition write(bool command, std::span<const char> bytes, bool last);

    T_ASC_Association& association_;
    T_ASC_PresentationContextID context_;
    std::uint16_t messageId_;
    std::vector<char>& buffer_;
    bool begun_ = false;
};

}  // namespace tessaly::dicom
