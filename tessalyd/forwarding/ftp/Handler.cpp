#include "tessalyd/forwarding/ftp/Handler.h"

#include <charconv>
#include <set>
#include <vector>

#include "base/Text.h"
#include "db/Error.h"
#include "jobs/JobTable.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/forwarding/ftp/Delivery.h"
#include "tessalyd/forwarding/ftp/DeliverySpool.h"
#include "tessalyd/forwarding/ftp/Node.h"
#include "tessalyd/forwarding/ftp/Volumes.h"

namespace tessaly::tessalyd::ftp {

namespace {

using Kind = jobs::Outcome::Kind;
using Clock = std::chrono::steady_clock;

/// The database's clock counts whole seconds: what came a second ago by it may have come just now.
constexpr std::chrono::seconds ClockStep{1};

/// Notes how far the attempt is, once a second.
class Noting {
  public:
    explicit Noting(jobs::Attempt& attempt) : attempt_(attempt) {}

    void delivered() {
        ++progress_.delivered;
        noteIfDue();
    }
    void failed() {
        ++progress_.failed;
        noteIfDue();
    }
    void note() { attempt_.noteProgress(textOf(progress_)); }

  private:
    void noteIfDue() {
        if (const auto now = Clock::now(); now >= due_) {
            due_ = now + std::chrono::seconds{1};
            note();
        }
    }

    jobs::Attempt& attempt_;
    Progress progress_;
    Clock::time_point due_ = Clock::now();
};

jobs::Outcome outcomeOf(const Delivery& delivery, std::size_t total) {
    if (!delivery.fault())
        return {};
    const bool isPermanent = delivery.fault()->kind() == Fault::Kind::Permanent;
    return {.kind = isPermanent ? Kind::GiveUp : Kind::Retry,
            .reason = std::to_string(delivery.failed()) + " of " + std::to_string(total) +
                      " objects: " + delivery.fault()->what()};
}

/// One attempt at a job.
class Work {
  public:
    Work(jobs::Attempt& attempt, decoder::Pool& decoders, std::chrono::seconds quietTime)
        : attempt_(attempt), job_(attempt.job()), decoders_(decoders), quietTime_(quietTime) {
        connection_.setStop([stop = attempt.stop()] { return stop.stop_requested(); });
        openDatabase(connection_, db::Purpose::DurableWrites);
    }

    [[nodiscard]] jobs::Outcome run() {
        const auto node = findNode(connection_, job_.target);
        if (!node)
            return {.kind = Kind::GiveUp, .reason = "there is no FTP node of this name"};
        if (!base::sameName(node->type, "Quib") && !isVolumeType(node->type))
            return {.kind = Kind::GiveUp, .reason = "the node's type is not known"};
        return job_.spool.empty() ? deliverItems(*node) : deliverList(*node);
    }

  private:
    [[nodiscard]] jobs::Outcome deliverList(const Node& node) {
        const DeliverySpool spool{job_.spool};
        DeliverySpool::Failures failures{spool};
        std::size_t total = 0;
        Noting noting{attempt_};
        Delivery delivery{node,
                          connection_,
                          decoders_,
                          attempt_.stop(),
                          {.delivered = [&] { noting.delivered(); },
                           .failed =
                               [&](const std::string& uid) {
                                   failures.add(uid);
                                   noting.failed();
                               }}};
        spool.forEach([&](const std::string& uid) {
            ++total;
            delivery.add(uid);
        });
        delivery.finish();
        failures.keep();
        noting.note();
        return outcomeOf(delivery, total);
    }

    [[nodiscard]] jobs::Outcome deliverItems(const Node& node) {
        if (const auto left = untilQuiet())
            return {.kind = Kind::Postpone, .delay = *left};
        // The same object may have come twice.
        std::vector<std::string> uids;
        std::set<std::string> known;
        for (jobs::Item& item : jobs::takeItems(connection_, JobKind, job_.key))
            if (known.insert(item.item).second)
                uids.push_back(std::move(item.item));
        Delivery delivery{node, connection_, decoders_, attempt_.stop(), {}};
        for (const std::string& uid : uids)
            delivery.add(uid);
        delivery.finish();
        if (!delivery.fault())
            jobs::removeTaken(connection_, JobKind, job_.key);
        return outcomeOf(delivery, uids.size());
    }

    /// How long the series is still to be waited for; nothing when it was quiet for long enough, or is late
    /// already.
    [[nodiscard]] std::optional<std::chrono::seconds> untilQuiet() {
        if (job_.attempts > 0)
            return std::nullopt;
        const auto last = jobs::lastAdded(connection_, JobKind, job_.key);
        if (!last)
            return std::nullopt;
        const auto left = *last + quietTime_ + ClockStep - jobs::now(connection_);
        return left > std::chrono::seconds{0} ? std::optional{left} : std::nullopt;
    }

    jobs::Attempt& attempt_;
    const jobs::Job& job_;
    decoder::Pool& decoders_;
    const std::chrono::seconds quietTime_;
    db::Connection connection_;
};

}  // namespace

jobs::Handler makeHandler(decoder::Pool& decoders, const std::atomic<std::chrono::seconds>& quietTime) {
    return [&decoders, &quietTime](jobs::Attempt& attempt) -> jobs::Outcome {
        try {
            return Work{attempt, decoders, quietTime}.run();
        } catch (const Stopped&) {
            return {.kind = Kind::Stopped};
        } catch (const Fault& fault) {
            return {.kind = fault.kind() == Fault::Kind::Permanent ? Kind::GiveUp : Kind::Retry,
                    .reason = fault.what()};
        } catch (const db::Stopped&) {
            return {.kind = Kind::Stopped};
        } catch (const db::Error& error) {  // more than its first line may quote a row
            const std::string words = error.what();
            return {.kind = attempt.stop().stop_requested() ? Kind::Stopped : Kind::Retry,
                    .reason = "the database: " + words.substr(0, words.find('\n'))};
        }
    };
}

void deliverLater(const db::Connection& connection, std::string_view node,
                  const std::string& seriesInstanceUid, const std::string& sopInstanceUid,
                  std::chrono::seconds quietTime) {
    const std::string target = targetOf(node);
    jobs::addItemTo(connection,
                    {.kind = JobKind,
                     .target = target,
                     .key = target + "/" + seriesInstanceUid,
                     .delay = quietTime + ClockStep},
                    sopInstanceUid);
}

std::string textOf(const Progress& progress) {
    return std::to_string(progress.delivered) + ' ' + std::to_string(progress.failed);
}

std::optional<Progress> parseProgress(std::string_view text) {
    Progress progress;
    const char* const end = text.data() + text.size();
    const auto first = std::from_chars(text.data(), end, progress.delivered);
    if (first.ec != std::errc{} || first.ptr == end || *first.ptr != ' ')
        return std::nullopt;
    const auto second = std::from_chars(first.ptr + 1, end, progress.failed);
    return second.ec == std::errc{} && second.ptr == end ? std::optional{progress} : std::nullopt;
}

}  // namespace tessaly::tessalyd::ftp
