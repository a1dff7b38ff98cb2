#include "jobs/Runner.h"

#include <algorithm>
#include <condition_variable>
#include <list>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "db/Error.h"
#include "db/dialects/Dialect.h"
#include "jobs/JobTable.h"
#include "jobs/Schedule.h"

namespace tessaly::jobs {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto Interval = 1s;                   // between two looks at the table
constexpr auto IdleInterval = 5s;               // the same while there are no jobs
constexpr auto RetryInterval = 5s;              // the same while the database is not there
constexpr auto ExtendInterval = 15s;            // between two renewals of a lease
constexpr auto LeaseMargin = 10s;               // before its end, when it could not be renewed
constexpr auto LockWait = 30s;                  // for others that write
constexpr auto LastStatements = 1s;             // that the database has for what is written down at a stop
constexpr auto ForgetInterval = 10min;          // between two removals of what was done long ago
constexpr std::chrono::seconds KeptDone = 24h;  // of what was done

std::string nameOf(const Job& job) {
    return "job " + std::to_string(job.number) + " (" + job.kind + ", " + job.target + ")";
}

/// For a connection's setStop(): its statements are ended LastStatements after the stop.
std::function<bool()> isOverdue(std::stop_token stop) {
    return [stop = std::move(stop), end = std::optional<Clock::time_point>{}]() mutable {
        if (!stop.stop_requested())
            return false;
        if (!end)
            end = Clock::now() + LastStatements;
        return Clock::now() > *end;
    };
}

}  // namespace

class Runner::Work {
  public:
    Work(std::map<std::string, Handler> handlers, Connect connect, Report report, RunnerOptions options)
        : handlers_(std::move(handlers)),
          connect_(std::move(connect)),
          report_(std::move(report)),
          options_(options) {}

    void start(std::vector<Spool> spools) {
        if (scheduler_.joinable())
            return;
        spools_ = std::move(spools);
        scheduler_ = std::jthread{[this](const std::stop_token& stop) { run(stop); }};
    }

    void stop() {
        if (!scheduler_.joinable())
            return;
        scheduler_.request_stop();
        scheduler_.join();
        scheduler_ = {};
    }

    void wake() {
        {
            const std::lock_guard lock{mutex_};
            isWoken_ = true;
        }
        changed_.notify_all();
    }

  private:
    class Running final : public Attempt {
      public:
        Running(Work& work, Job job, Clock::time_point leasedUntil)
            : work_(work), job_(std::move(job)), token_(source_.get_token()), leasedUntil_(leasedUntil) {}

        [[nodiscard]] const Job& job() const noexcept override { return job_; }
        [[nodiscard]] const std::stop_token& stop() const noexcept override { return token_; }
        void noteProgress(const std::string& note) override { work_.noteProgress(*this, note); }

        void begin(const Handler& handler) {
            thread_ = std::jthread{[this, &handler] { work_.attempt(*this, handler); }};
        }
        void end() const { source_.request_stop(); }
        void join() {
            if (thread_.joinable())
                thread_.join();
        }

        Work& work_;
        Job job_;
        std::stop_source source_;
        std::stop_token token_;
        Clock::time_point leasedUntil_;
        bool isLost_ = false;                    // the job is another's by now, or was dropped
        std::optional<Outcome> outcome_;         // guarded by the mutex of the work
        std::unique_ptr<db::Connection> notes_;  // of the attempt's thread
        std::jthread thread_;
    };

    void run(const std::stop_token& stop) {
        bool isTroubled = false;
        while (!stop.stop_requested()) {
            try {
                step(stop);
                if (std::exchange(isTroubled, false))
                    report_(Severity::Error, "jobs: the database is there again");
            } catch (const std::exception& fault) {
                connection_.reset();
                if (!stop.stop_requested() && !std::exchange(isTroubled, true))
                    report_(Severity::Error, std::string{"jobs: "} + fault.what() + "; trying again");
            }
            endLeasesThatAreOver();
            std::unique_lock lock{mutex_};
            changed_.wait_for(lock, stop,
                              isTroubled ? RetryInterval
                              : isIdle_  ? IdleInterval
                                         : Interval,
                              [this, isTroubled] { return isWoken_ && !isTroubled; });
            isWoken_ = false;
        }
        endAll();
    }

    void open(const std::stop_token& stop) {
        if (connection_)
            return;
        auto connection = std::make_unique<db::Connection>();
        connection->setLockWait(LockWait);
        connection->setStop(isOverdue(stop));
        connect_(*connection);
        connection_ = std::move(connection);
    }

    void step(const std::stop_token& stop) {
        open(stop);
        finishEnded();
        findLost();
        for (const auto& attempt : running_)
            extendLease(*attempt);
        tidy();
        if (stop.stop_requested())
            return;
        if (running_.size() < options_.atATime)
            beginDue();
        rest();
    }

    void beginDue() {
        // Those of other servers' kinds are left alone, and must not fill the list.
        const std::size_t most = options_.atATime - running_.size();
        for (Job& job : due(*connection_, most + handlers_.size()))
            if (running_.size() < options_.atATime && handlers_.contains(job.kind))
                begin(std::move(job));
    }

    /// A database that is a file is not held open while there is nothing to do: others may want it alone.
    void rest() {
        isIdle_ = running_.empty() && !anyUnfinished(*connection_);
        if (isIdle_ && connection_->dialect().keepsFiles())
            connection_.reset();
    }

    void tidy() {
        if (Clock::now() > forgotten_ + ForgetInterval) {
            forget(*connection_, KeptDone);
            forgotten_ = Clock::now();
        }
        for (; !spools_.empty(); spools_.pop_back())
            if (const std::size_t removed = spools_.back().clean([this](const std::filesystem::path& path) {
                    return hasSpool(*connection_, path.native());
                });
                removed > 0)
                report_(Severity::Info, "spool " + spools_.back().folder().native() + ": removed " +
                                            std::to_string(removed) + " that no job has");
    }

    void begin(Job job) {
        const Clock::time_point leasedUntil = Clock::now() + LeaseTime;
        if (!claim(*connection_, job.number, owner_))
            return;
        report_(Severity::Debug, nameOf(job) + ": begun");
        running_.push_back(std::make_unique<Running>(*this, std::move(job), leasedUntil));
        try {
            running_.back()->begin(handlers_.at(running_.back()->job_.kind));
        } catch (const std::system_error& fault) {  // no thread
            running_.back()->outcome_ = Outcome{.kind = Outcome::Kind::Stopped, .reason = fault.what()};
        }
    }

    /// In the attempt's thread.
    void attempt(Running& attempt, const Handler& handler) {
        Outcome outcome;
        try {
            outcome = handler(attempt);
        } catch (const std::exception& fault) {
            outcome = {
                .kind = attempt.token_.stop_requested() ? Outcome::Kind::Stopped : Outcome::Kind::Retry,
                .reason = fault.what()};
        }
        {
            const std::lock_guard lock{mutex_};
            attempt.outcome_ = std::move(outcome);
            isWoken_ = true;
        }
        changed_.notify_all();
    }

    void finishEnded() {
        for (auto at = running_.begin(); at != running_.end();) {
            Running& attempt = **at;
            std::optional<Outcome> outcome;
            {
                const std::lock_guard lock{mutex_};
                outcome = attempt.outcome_;
            }
            if (!outcome) {
                ++at;
                continue;
            }
            attempt.join();
            if (!attempt.isLost_)
                write(attempt.job_, *outcome);
            at = running_.erase(at);
        }
    }

    void write(const Job& job, const Outcome& outcome) {
        const Ending ending = endingOf(job, outcome, now(*connection_), options_);
        if (!finish(*connection_, job.number, owner_, ending)) {
            report_(Severity::Debug, nameOf(job) + ": it is not this server's any more");
            return;
        }
        report(job, outcome, ending);
        if (ending.state == State::Done && !job.spool.empty())
            Spool::remove(job.spool);
    }

    void report(const Job& job, const Outcome& outcome, const Ending& ending) const {
        const std::string name = nameOf(job);
        if (ending.state == State::Done)
            report_(Severity::Info, name + ": done");
        else if (ending.state == State::GivenUp)
            report_(Severity::Error, name + ": given up: " + outcome.reason);
        else if (ending.state == State::Uncertain)
            report_(Severity::Error, name + ": it is not known whether it was done: " + outcome.reason);
        else if (outcome.kind == Outcome::Kind::Retry)
            report_(Severity::Info, name + ": " + outcome.reason + "; tried again in " +
                                        std::to_string(ending.delay.count()) + " s");
        else
            report_(Severity::Debug, name + ": put off");
    }

    void findLost() {
        if (running_.empty())
            return;
        const std::vector<long long> ours = running(*connection_, owner_);
        for (const auto& attempt : running_)
            if (std::find(ours.begin(), ours.end(), attempt->job_.number) == ours.end())
                lose(*attempt, "it was dropped");
    }

    void extendLease(Running& attempt) {
        const Clock::time_point before = Clock::now();
        if (attempt.isLost_ || before + LeaseTime < attempt.leasedUntil_ + ExtendInterval)
            return;
        if (extend(*connection_, attempt.job_.number, owner_))
            attempt.leasedUntil_ = before + LeaseTime;
        else
            lose(attempt, "another server has it");
    }

    /// Before another server may take it, should the database be there for that one.
    void endLeasesThatAreOver() {
        for (const auto& attempt : running_)
            if (!attempt->token_.stop_requested() && Clock::now() > attempt->leasedUntil_ - LeaseMargin) {
                report_(Severity::Error, nameOf(attempt->job_) + ": ended, its lease could not be renewed");
                attempt->end();
            }
    }

    void lose(Running& attempt, const char* why) {
        if (std::exchange(attempt.isLost_, true))
            return;
        report_(Severity::Info, nameOf(attempt.job_) + ": ended: " + why);
        attempt.end();
    }

    void endAll() {
        for (const auto& attempt : running_)
            attempt->end();
        for (const auto& attempt : running_)
            attempt->join();
        try {
            if (connection_)
                finishEnded();
        } catch (const std::exception& fault) {  // their leases end by themselves
            report_(Severity::Error, std::string{"jobs: "} + fault.what());
        }
        running_.clear();
        connection_.reset();
    }

    /// In the attempt's thread. On a connection of its own: the scheduler's may be busy.
    void noteProgress(Running& attempt, const std::string& note) {
        try {
            if (!attempt.notes_) {
                auto connection = std::make_unique<db::Connection>();
                connection->setLockWait(LockWait);
                connection->setStop(isOverdue(attempt.token_));
                connect_(*connection);
                attempt.notes_ = std::move(connection);
            }
            if (!jobs::noteProgress(*attempt.notes_, attempt.job_.number, owner_, note))
                throw std::runtime_error{"the job is not this server's any more"};
        } catch (const db::Error&) {
            attempt.notes_.reset();
            throw;
        }
    }

    const std::map<std::string, Handler> handlers_;
    const Connect connect_;
    const Report report_;
    const RunnerOptions options_;
    const std::string owner_ = newOwner();

    std::mutex mutex_;
    std::condition_variable_any changed_;
    bool isWoken_ = false;

    // Of the scheduler's thread.
    std::unique_ptr<db::Connection> connection_;
    std::list<std::unique_ptr<Running>> running_;
    Clock::time_point forgotten_{};
    bool isIdle_ = false;
    std::vector<Spool> spools_;  // still to be tidied

    std::jthread scheduler_;
};

Runner::Runner(std::map<std::string, Handler> handlers, Connect connect, Report report, RunnerOptions options)
    : work_(std::make_unique<Work>(std::move(handlers), std::move(connect), std::move(report), options)) {}

Runner::~Runner() {
    stop();
}

void Runner::start(std::vector<Spool> spools) {
    work_->start(std::move(spools));
}

void Runner::stop() {
    work_->stop();
}

void Runner::wake() {
    work_->wake();
}

}  // namespace tessaly::jobs
