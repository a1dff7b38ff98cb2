#include "tessalyd/services/retrieve/FtpMove.h"

#include <dcmtk/dcmnet/dimse.h>

#include <algorithm>
#include <chrono>
#include <system_error>
#include <thread>

#include "archive/StoredPath.h"
#include "db/Error.h"
#include "jobs/JobTable.h"
#include "jobs/Spool.h"
#include "tessalyd/Printable.h"
#include "tessalyd/forwarding/ftp/DeliverySpool.h"
#include "tessalyd/forwarding/ftp/Handler.h"
#include "tessalyd/forwarding/ftp/Node.h"

namespace tessaly::tessalyd {

namespace {

/// How often requestor and job are looked after.
constexpr std::chrono::milliseconds LookInterval{100};
/// While the database is not there.
constexpr std::chrono::seconds RetryInterval{5};

/// Its first attempt is over, or it will have none.
bool isAnswered(const std::optional<jobs::Job>& job) {
    if (!job)
        return true;
    return job->state == jobs::State::Done || job->state == jobs::State::GivenUp ||
           job->state == jobs::State::Uncertain || job->attempts > 0;
}

SubOperations operationsOf(const ftp::Progress& progress, std::size_t total) {
    SubOperations operations{total};
    for (std::size_t each = 0; each < std::min(progress.delivered, total); ++each)
        operations.complete();
    return operations;
}

}  // namespace

void FtpMove::run(const std::string& node, InstanceList instances) {
    total_ = instances.size();
    const long long number = begin(node, std::move(instances));
    retrieval_.shared().wakeJobs();
    try {
        follow(number);
    } catch (const AssociationEnded&) {
        retrieval_.count(operationsOf(ftp::parseProgress(last_.progress).value_or(ftp::Progress{}), total_));
        throw;
    }
}

long long FtpMove::begin(const std::string& node, InstanceList instances) {
    try {
        const jobs::Spool spool{archive::localPath(association_.port().root)};
        const jobs::Spool::Entry entry = ftp::DeliverySpool::make(spool, [&]() -> std::optional<std::string> {
            const auto next = instances.next();
            return next ? std::optional{next->sopInstanceUid} : std::nullopt;
        });
        try {
            const std::string key = entry.path.filename();
            retrieval_.shared().jobs.write(
                [&](const db::Connection& connection) {
                    jobs::add(connection, {.kind = ftp::JobKind,
                                           .target = ftp::targetOf(node),
                                           .key = key,
                                           .spool = entry.path});
                    last_ = jobs::find(connection, ftp::JobKind, key).value();
                },
                association_.stop());
            return last_.number;
        } catch (const db::OutcomeUnknown&) {
            throw;  // there may be a job: its list stays until the next start finds that there is none
        } catch (...) {
            jobs::Spool::remove(entry.path);
            throw;
        }
    } catch (const db::Error& error) {
        association_.log(PeerLog::Event::Failure, std::string{"delivery not begun: "} + error.what());
    } catch (const std::system_error& error) {
        association_.log(PeerLog::Event::Failure, std::string{"delivery not begun: "} + error.what());
    }
    throw RequestFailure{STATUS_MOVE_Refused_OutOfResourcesSubOperations, "The delivery cannot be begun now"};
}

std::optional<jobs::Job> FtpMove::look(long long number) {
    std::optional<jobs::Job> job;
    retrieval_.shared().jobs.run(
        [&](const db::Connection& connection) { job = jobs::find(connection, number); }, association_.stop());
    if (job)
        last_ = *job;
    return job;
}

void FtpMove::follow(long long number) {
    using Clock = std::chrono::steady_clock;
    PendingPace pace{Clock::now()};
    auto next = Clock::now();
    for (;;) {
        if (association_.isCancelled())
            return cancel(number);
        if (Clock::now() >= next) {
            try {
                next = Clock::now() + LookInterval;
                const auto job = look(number);
                if (isAnswered(job))
                    return answer(job);
            } catch (const db::Error& error) {  // the job goes on when it is there again
                association_.log(PeerLog::Event::Fault,
                                 std::string{"the delivery cannot be looked after: "} + error.what());
                next = Clock::now() + RetryInterval;
            }
        }
        if (pace.isDue(Clock::now())) {
            const auto progress = ftp::parseProgress(last_.progress).value_or(ftp::Progress{});
            auto operations = operationsOf(progress, total_);
            for (std::size_t each = 0; each < progress.failed && operations.remaining() > 0; ++each)
                operations.fail();
            Retrieval::answerPending(request_, association_, operations);
        }
        std::this_thread::sleep_for(LookInterval);
    }
}

void FtpMove::cancel(long long number) {
    std::optional<jobs::Job> dropped;
    try {
        const auto job = look(number);
        if (isAnswered(job))
            return answer(job);  // what was cancelled when all was done was not cancelled
        retrieval_.shared().jobs.run(
            [&](const db::Connection& connection) { dropped = jobs::drop(connection, number); },
            association_.stop());
    } catch (const db::Error& error) {
        association_.log(PeerLog::Event::Failure, std::string{"delivery not ended: "} + error.what());
    }
    retrieval_.shared().wakeJobs();
    if (dropped)
        jobs::Spool::remove(dropped->spool);
    const auto progress = ftp::parseProgress(last_.progress).value_or(ftp::Progress{});
    retrieval_.answerFinally(request_, association_, operationsOf(progress, total_), true);
}

void FtpMove::answer(const std::optional<jobs::Job>& job) {
    if (job && job->state == jobs::State::Done)
        return retrieval_.answerFinally(request_, association_, operationsOf({.delivered = total_}, total_));
    const auto progress = ftp::parseProgress(last_.progress);
    auto operations = operationsOf(progress.value_or(ftp::Progress{}), total_);
    const auto fail = [&](const std::string& uid) {
        if (operations.remaining() > 0)
            operations.fail(uid);
    };
    try {
        const ftp::DeliverySpool spool{last_.spool};
        if (progress)
            spool.forEachFailed(fail);
        else
            spool.forEach(fail);
    } catch (const std::system_error& error) {
        association_.log(PeerLog::Event::Failure, error.what());
    }
    while (operations.remaining() > 0)  // the attempt did not get so far
        operations.fail();
    constexpr std::size_t LongestComment = 64;
    std::string comment = "The delivery was dropped";
    if (job)
        comment = job->state == jobs::State::Waiting || job->state == jobs::State::Running
                      ? "Not all is delivered; it will be retried"
                      : job->lastError.substr(0, LongestComment);
    retrieval_.answerFinally(request_, association_, operations, comment);
}

}  // namespace tessaly::tessalyd
