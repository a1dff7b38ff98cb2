#include "tessalyd/services/retrieve/SubOperations.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dimse.h>

#include <algorithm>
#include <limits>

namespace tessaly::tessalyd {

namespace {

constexpr std::uint16_t Cancelled = STATUS_GET_Cancel_SubOperationsTerminatedDueToCancelIndication;
constexpr std::uint16_t SomeFailed = STATUS_GET_Warning_SubOperationsCompleteOneOrMoreFailures;
constexpr std::uint16_t AllFailed = STATUS_GET_Refused_OutOfResourcesSubOperations;

std::uint16_t saturated(std::size_t count) {
    return static_cast<std::uint16_t>(
        std::min<std::size_t>(count, std::numeric_limits<std::uint16_t>::max()));
}

}  // namespace

void SubOperations::fail(const std::string& sopInstanceUid) {
    count(failed_);
    if (!failedUids_.empty() && !sopInstanceUid.empty())
        failedUids_ += '\\';
    failedUids_ += sopInstanceUid;
}

std::uint16_t SubOperations::finalStatus(bool cancelled) const noexcept {
    if (cancelled)
        return Cancelled;
    if (failed_ > 0 && sent() == 0)
        return AllFailed;
    return failed_ > 0 || warned_ > 0 ? SomeFailed : STATUS_Success;
}

dicom::Command SubOperations::response(const dicom::Command& request, std::uint16_t status) const {
    auto response = dicom::Command::responseTo(request, status);
    response.set(DCM_NumberOfCompletedSuboperations, saturated(completed_));
    response.set(DCM_NumberOfFailedSuboperations, saturated(failed_));
    response.set(DCM_NumberOfWarningSuboperations, saturated(warned_));
    if (status == STATUS_Pending || status == Cancelled)
        response.set(DCM_NumberOfRemainingSuboperations, saturated(remaining_));
    return response;
}

std::optional<DcmDataset> SubOperations::failures() const {
    if (failed_ == 0)
        return std::nullopt;
    std::optional<DcmDataset> list{std::in_place};
    list->putAndInsertString(DCM_FailedSOPInstanceUIDList, failedUids_.c_str());
    return list;
}

bool PendingPace::isDue(Clock::time_point now) {
    if (now < next_)
        return false;
    next_ += (now - next_) / Interval * Interval + Interval;
    return true;
}

}  // namespace tessaly::tessalyd
