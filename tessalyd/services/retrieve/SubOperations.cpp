#include "tessalyd/services/retrieve/SubOperations.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace tessaly::tessalyd {

namespace {

static_assert(O_GET_NUMBEROFREMAININGSUBOPERATIONS == O_MOVE_NUMBEROFREMAININGSUBOPERATIONS &&
              O_GET_NUMBEROFCOMPLETEDSUBOPERATIONS == O_MOVE_NUMBEROFCOMPLETEDSUBOPERATIONS &&
              O_GET_NUMBEROFFAILEDSUBOPERATIONS == O_MOVE_NUMBEROFFAILEDSUBOPERATIONS &&
              O_GET_NUMBEROFWARNINGSUBOPERATIONS == O_MOVE_NUMBEROFWARNINGSUBOPERATIONS &&
              O_GET_AFFECTEDSOPCLASSUID == O_MOVE_AFFECTEDSOPCLASSUID);
constexpr unsigned AlwaysThere = O_GET_AFFECTEDSOPCLASSUID | O_GET_NUMBEROFCOMPLETEDSUBOPERATIONS |
                                 O_GET_NUMBEROFFAILEDSUBOPERATIONS | O_GET_NUMBEROFWARNINGSUBOPERATIONS;

constexpr DIC_US Cancelled = STATUS_GET_Cancel_SubOperationsTerminatedDueToCancelIndication;
constexpr DIC_US SomeFailed = STATUS_GET_Warning_SubOperationsCompleteOneOrMoreFailures;
constexpr DIC_US AllFailed = STATUS_GET_Refused_OutOfResourcesSubOperations;

DIC_US saturated(std::size_t count) {
    return static_cast<DIC_US>(std::min<std::size_t>(count, std::numeric_limits<DIC_US>::max()));
}

}  // namespace

void SubOperations::fail(const std::string& sopInstanceUid) {
    count(failed_);
    if (!failedUids_.empty() && !sopInstanceUid.empty())
        failedUids_ += '\\';
    failedUids_ += sopInstanceUid;
}

DIC_US SubOperations::finalStatus(bool cancelled) const noexcept {
    if (cancelled)
        return Cancelled;
    if (failed_ > 0 && sent() == 0)
        return AllFailed;
    return failed_ > 0 || warned_ > 0 ? SomeFailed : STATUS_Success;
}

T_DIMSE_Message SubOperations::answer(const T_DIMSE_Message& request, DIC_US status) const {
    T_DIMSE_Message answer{};
    const auto fill = [&](auto& response, const auto& asked) {
        response.MessageIDBeingRespondedTo = asked.MessageID;
        std::memcpy(response.AffectedSOPClassUID, asked.AffectedSOPClassUID,
                    sizeof asked.AffectedSOPClassUID);
        const bool isOver = status != STATUS_Pending;
        response.DataSetType = isOver && failed_ > 0 ? DIMSE_DATASET_PRESENT : DIMSE_DATASET_NULL;
        response.DimseStatus = status;
        response.NumberOfRemainingSubOperations = saturated(remaining_);
        response.NumberOfCompletedSubOperations = saturated(completed_);
        response.NumberOfFailedSubOperations = saturated(failed_);
        response.NumberOfWarningSubOperations = saturated(warned_);
        response.opts = AlwaysThere;
        if (!isOver || status == Cancelled)
            response.opts |= O_GET_NUMBEROFREMAININGSUBOPERATIONS;
    };
    if (request.CommandField == DIMSE_C_GET_RQ) {
        answer.CommandField = DIMSE_C_GET_RSP;
        fill(answer.msg.CGetRSP, request.msg.CGetRQ);
    } else {
        answer.CommandField = DIMSE_C_MOVE_RSP;
        fill(answer.msg.CMoveRSP, request.msg.CMoveRQ);
    }
    return answer;
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
