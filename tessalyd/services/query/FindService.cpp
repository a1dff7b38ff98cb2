#include "tessalyd/services/query/FindService.h"

#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/dul.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

#include "db/Error.h"
#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/association/Requester.h"
#include "tessalyd/services/query/ReceivedIdentifier.h"

namespace tessaly::tessalyd {

namespace {

constexpr std::string_view PatientRoot = UID_FINDPatientRootQueryRetrieveInformationModel;
constexpr std::string_view StudyRoot = UID_FINDStudyRootQueryRetrieveInformationModel;

/// Between two looks at the requester. What has been sent by then goes out at each of them: answers that come
/// fast go out together, and none waits longer.
constexpr std::chrono::milliseconds LookInterval{5};

/// Looks whether the requester still wants its answers; the association's end comes as AssociationEnded.
class Watch {
  public:
    explicit Watch(Requester& requester) : requester_(requester) {}

    [[nodiscard]] bool isCancelled() {
        last_ = Clock::now();
        if (requester_.stop().stop_requested())
            throw AssociationEnded{DUL_NETWORKCLOSED};
        return requester_.isCancelled();
    }
    /// The same, but not more often than it has to be.
    [[nodiscard]] bool isCancelledByNow() { return Clock::now() - last_ >= LookInterval && isCancelled(); }

  private:
    using Clock = std::chrono::steady_clock;

    Requester& requester_;
    Clock::time_point last_;
};

void send(const Request& request, Requester& requester, DIC_US status, DcmDataset* found = nullptr) {
    T_DIMSE_Message answer{};
    answer.CommandField = DIMSE_C_FIND_RSP;
    answer.msg.CFindRSP.DimseStatus = status;
    requester.dump(answer);
    Requester::require(DIMSE_sendFindResponse(requester.association(), request.context->id,
                                              &request.message.msg.CFindRQ, &answer.msg.CFindRSP, found,
                                              nullptr));
}

/// What the server cannot do is an error here, what the requester asks wrongly a warning.
[[noreturn]] void fail(const Requester& requester, const RequestFailure& failure, const char* detail) {
    const bool isOurs = failure.status() == STATUS_FIND_Refused_OutOfResources;
    requester.log(isOurs ? PeerLog::Event::Failure : PeerLog::Event::Fault,
                  std::string{"query not answered: "} + detail);
    throw failure;
}

}  // namespace

std::span<const SupportedContext> FindService::supportedContexts() const noexcept {
    static constexpr std::array Offers{SupportedContext{
        .covers = [](const char* uid) { return uid == PatientRoot || uid == StudyRoot; },
        .requester = Role::Scu,
        .preference = [](dicom::TransferSyntax syntax) { return dicom::isUncompressed(syntax) ? 1 : 0; }}};
    return Offers;
}

std::vector<std::uint8_t> FindService::negotiateExtended(const std::string& sopClass,
                                                         std::span<const std::uint8_t> proposed) {
    QueryOptions& options = options_[sopClass];
    options.relational = !proposed.empty() && proposed[0] == 1;
    options.combinedDateTime = proposed.size() > 1 && proposed[1] == 1;
    // What else is proposed does not hold: names are matched alike for everybody, times as they are stored.
    std::vector<std::uint8_t> holds(proposed.size(), 0);
    if (options.relational)
        holds[0] = 1;
    if (options.combinedDateTime)
        holds[1] = 1;
    return holds;
}

void FindService::answer(const Request& request, Requester& requester) {
    rules_->require(requester);
    ++queries_;
    try {
        const bool cancelled = sendAnswers(read(request, requester), request, requester);
        send(request, requester, cancelled ? STATUS_FIND_Cancel : STATUS_FIND_Success);
    } catch (const RequestFailure& failure) {
        fail(requester, failure, failure.what());
    } catch (const db::Error& error) {
        fail(requester, {STATUS_FIND_Refused_OutOfResources, "The database cannot be read now"},
             error.what());
    }
}

QueryIdentifier FindService::read(const Request& request, Requester& requester) const {
    const auto identifier = receiveIdentifier(request, requester);
    const std::string& sopClass = request.context->sopClass;
    const auto negotiated = options_.find(sopClass);
    QueryIdentifier query = readQuery(
        *identifier, sopClass == PatientRoot ? InformationModel::PatientRoot : InformationModel::StudyRoot,
        negotiated == options_.end() ? QueryOptions{} : negotiated->second);
    query.query.hasOlderRows = rules_->haveOlderRows();
    return query;
}

bool FindService::sendAnswers(QueryIdentifier query, const Request& request, Requester& requester) {
    Watch watch{requester};
    const auto isCancelled = [&watch] { return watch.isCancelled(); };
    const std::string& title = requester.port().aeTitle;
    QueryAnswers answers{std::move(query), title.empty() ? requester.names().calledAeTitle : title,
                         SearchLimits{.timeout = rules_->timeout(), .stop = isCancelled}};
    while (!answers.isComplete()) {
        if (!read(answers, isCancelled))
            return true;
        while (answers.next()) {
            if (watch.isCancelledByNow())
                return true;
            send(request, requester, answers.pendingStatus(), &answers.answer());
            ++found_;
        }
    }
    return answers.wasStopped();
}

bool FindService::read(QueryAnswers& answers, const std::function<bool()>& isCancelled) {
    const auto lease = sessions_.take(isCancelled);
    if (!lease)
        return false;
    answers.read(lease->statements());
    return true;
}

std::string FindService::summary() const {
    if (queries_ == 0)
        return {};
    return std::to_string(queries_) + " queries, " + std::to_string(found_) + " found";
}

}  // namespace tessaly::tessalyd
