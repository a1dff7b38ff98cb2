#include "dicom/net/StoreRequest.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dimse.h>
#include <dcmtk/dcmnet/diutil.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace tessaly::dicom {

SendResult resultOf(const Command& response) {
    const std::uint16_t status = response.status();
    if (status == STATUS_Success)
        return {};
    const bool warning = DICOM_WARNING_STATUS(status);
    std::array<char, 8> number{};
    (void)std::snprintf(number.data(), number.size(), "%04X", unsigned{status});
    return {.outcome = warning ? SendResult::Outcome::Warning : SendResult::Outcome::Failed,
            .status = status,
            .detail = std::string{"status "} + number.data(),
            .comment = response.value(DCM_ErrorComment)};
}

Command StoreRequest::command(const OutgoingObject& object, const MoveOriginator* originator) const {
    auto command = Command::request(CommandField::CStore, messageId_);
    command.set(DCM_AffectedSOPClassUID, object.kind().sopClass);
    command.set(DCM_AffectedSOPInstanceUID, object.sopInstanceUid());
    command.set(DCM_Priority, std::uint16_t{DIMSE_PRIORITY_MEDIUM});
    command.setHasDataSet(true);
    if (originator != nullptr) {
        command.set(DCM_MoveOriginatorApplicationEntityTitle, originator->aeTitle);
        command.set(DCM_MoveOriginatorMessageID, originator->messageId);
    }
    return command;
}

void StoreRequest::send(OutgoingObject& object, const MoveOriginator* originator) {
    constexpr std::size_t LongestPart = std::size_t{256} << 10U;
    const std::size_t perPdu = std::max<std::size_t>(messages_.bytesPerPdu(), 2);
    buffer_.resize(std::max(perPdu, LongestPart - LongestPart % perPdu));
    std::size_t left = object.size();
    const auto next = [&] {
        const auto part = std::span{buffer_}.first(std::min(left, buffer_.size()));
        object.read(part);
        left -= part.size();
        return part;
    };
    auto part = next();  // before anything is sent: mostly that is all of it
    begun_ = true;
    messages_.sendCommand(context_, command(object, originator));
    for (;; part = next()) {
        messages_.sendDataSet(context_, part, left == 0);
        if (left == 0)
            break;
    }
}

}  // namespace tessaly::dicom
