#include "tessalyd/services/query/FindService.h"

#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/dimse.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

#include "db/Error.h"
#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/association/Association.h"
#include "tessalyd/services/query/ReceivedIdentifier.h"

namespace tessaly::tessalyd {

namespace {

constexpr std::string_view PatientRoot = UID_FINDPatientRootQueryRetrieveInformationModel;
constexpr std::string_view StudyRoot = UID_FINDStudyRootQueryRetrieveInformationModel;

/// Between two looks at the requestor. What has been sent by then goes out at each of them: answers that come
/// fast go out together, and none waits longer.
constexpr std::chrono::milliseconds LookInterval{5};

/// Looks whether the requestor still wants its answers, no more often than it has to.
class Watch {
  public:
    explicit Watch(Association& association) : association_(association) {}

    [[nodiscard]] bool isCancelled() {
        last_ = Clock::now();
        return association_.isCancelled();
    }
    [[nodiscard]] bool isCancelledByNow() { return Clock::now() - last_ >= LookInterval && isCancelled(); }

  private:
    using Clock = std::chrono::steady_clock;

    Association& association_;
    Clock::time_point last_;
};

/// What the server cannot do is an error here, what the requestor asks wrongly a warning.
[[noreturn]] void fail(const Association& association, const RequestFailure& failure, const char* detail) {
    const bool isOurs = failure.status() == STATUS_FIND_Refused_OutOfResources;
    association.log(isOurs ? PeerLog::Event::Failure : PeerLog::Event::Fault,
                    std::string{"query not answered: "} + detail);
    throw failure;
}

}  // namespace

std::span<const SupportedContext> FindService::contexts() const noexcept {
    static constexpr std::array Supported{SupportedContext{
        .covers = [](const char* uid) { return uid == PatientRoot || uid == StudyRoot; },
        .requestor = Role::Scu,
        .preference = [](dicom::TransferSyntax syntax) { return dicom::isUncompressed(syntax) ? 1 : 0; },
        .right = Right::Query}};
    return Supported;
}

std::span<const CommandField> FindService::commands() const noexcept {
    static constexpr std::array Commands{CommandField::CFind};
    return Commands;
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

void FindService::answer(const Request& request, Association& association) {
    ++queries_;
    try {
        const bool cancelled = sendAnswers(read(request, association), request, association);
        association.respond(request, cancelled ? STATUS_FIND_Cancel : STATUS_FIND_Success);
    } catch (const RequestFailure& failure) {
        fail(association, failure, failure.what());
    } catch (const db::Error& error) {
        fail(association, {STATUS_FIND_Refused_OutOfResources, "The database cannot be read now"},
             error.what());
    }
}

QueryIdentifier FindService::read(const Request& request, Association& association) const {
    const auto identifier = receiveIdentifier(request, association);
    const std::string& sopClass = request.context->sopClass;
    const auto negotiated = options_.find(sopClass);
    QueryIdentifier query = readQuery(
        *identifier, sopClass == PatientRoot ? InformationModel::PatientRoot : InformationModel::StudyRoot,
        negotiated == options_.end() ? QueryOptions{} : negotiated->second);
    query.query.hasOlderRows = settings_->hasOlderRows;
    return query;
}

bool FindService::sendAnswers(QueryIdentifier query, const Request& request, Association& association) {
    Watch watch{association};
    const auto isCancelled = [&watch] { return watch.isCancelled(); };
    const std::string& title = association.port().aeTitle;
    QueryAnswers answers{std::move(query), title.empty() ? association.names().calledAeTitle : title,
                         SearchLimits{.timeout = settings_->queryTimeout, .stop = isCancelled}};
    while (!answers.isComplete()) {
        if (!read(answers, isCancelled))
            return true;
        while (answers.next()) {
            if (watch.isCancelledByNow())
                return true;
            association.respond(request, answers.pendingStatus(), &answers.answer());
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
