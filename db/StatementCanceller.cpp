#include "db/StatementCanceller.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace tessaly::db::detail {

namespace {

using Clock = std::chrono::steady_clock;

/// Most statements are over before anybody is asked.
constexpr std::chrono::milliseconds Interval{100};
/// In the thread of the statement, where asking begins no thread.
constexpr std::chrono::milliseconds InnerInterval{50};

}  // namespace

/// One statement, and the thread that asks for it, once it has run for a while. The mutex keeps the
/// statement's own thread from going on while the question is asked.
struct StatementCanceller::Watched {
    Watched(SQLHSTMT runs, const std::function<bool()>& question) : statement(runs), isUnwanted(question) {}

    void ask() {
        std::unique_lock lock{mutex};
        while (!isOver) {
            if (!isStopped && !fault) {
                try {
                    isStopped = isUnwanted();
                } catch (...) {
                    fault = std::current_exception();
                }
            }
            // Again and again: one that comes before the engine has begun ends nothing.
            if (isStopped || fault)
                SQLCancel(statement);
            over.wait_for(lock, Interval, [this] { return isOver; });
        }
    }

    const SQLHSTMT statement;
    const std::function<bool()>& isUnwanted;
    const Clock::time_point due = Clock::now() + Interval;
    std::mutex mutex;
    std::condition_variable over;
    bool isOver = false;
    bool isStopped = false;
    std::exception_ptr fault;
    std::thread asker;
};

/// Begins the threads of the statements that take long. Most are over before that, and cost no thread.
class StatementCanceller::Watcher {
  public:
    static Watcher& instance() {
        static Watcher watcher;
        return watcher;
    }

    void add(Watched& watched) {
        const std::lock_guard lock{mutex_};
        waiting_.push_back(&watched);
        if (std::exchange(isIdle_, false))
            begun_.notify_one();
    }
    /// Its thread does not begin any more, if it has not.
    void remove(Watched& watched) {
        const std::lock_guard lock{mutex_};
        std::erase(waiting_, &watched);
    }

  private:
    void run(const std::stop_token& stop) {
        std::unique_lock lock{mutex_};
        while (!stop.stop_requested()) {
            if (waiting_.empty()) {
                isIdle_ = true;
                begun_.wait(lock, stop, [this] { return !isIdle_; });
            }
            begun_.wait_for(lock, stop, Interval / 2, [] { return false; });
            const auto now = Clock::now();
            std::erase_if(waiting_,
                          [now](Watched* watched) { return watched->due <= now && begin(*watched); });
        }
    }

    static bool begin(Watched& watched) {
        try {
            watched.asker = std::thread{[&watched] { watched.ask(); }};
            return true;
        } catch (const std::system_error&) {  // the system has no thread left
            return false;
        }
    }

    std::mutex mutex_;
    std::condition_variable_any begun_;
    std::vector<Watched*> waiting_;
    bool isIdle_ = false;
    std::jthread thread_{[this](const std::stop_token& stop) { run(stop); }};  // last: it uses the others
};

void StatementCanceller::beginRun(Statement& statement, const std::function<bool()>& isUnwanted) {
    statement.isUnwanted = isUnwanted;
    statement.deadline.reset();
    const bool hasTimeout = statement.timeout > std::chrono::seconds::zero();
    if (!isUnwanted && !hasTimeout)
        return;
    const auto now = Clock::now();
    statement.nextQuestion = now + InnerInterval;
    if (hasTimeout)
        statement.deadline = now + statement.timeout;
}

StatementCanceller::StatementCanceller(Statement& statement) : statement_(statement) {
    if (!statement.isUnwanted && !statement.deadline)
        return;
    const Session& session = *statement.session();
    if (session.progress() != nullptr) {
        session.progress()->setListener(this);
        listens_ = true;
    } else if (statement.isUnwanted && session.dialect().endsStatementsFromElsewhere()) {
        watched_ = std::make_unique<Watched>(statement.get(), statement.isUnwanted);
        Watcher::instance().add(*watched_);
    }
}

StatementCanceller::~StatementCanceller() {
    finish();
}

bool StatementCanceller::endsStatement() noexcept {
    if (isStopped_ || isLate_ || fault_)
        return true;
    const auto now = Clock::now();
    isLate_ = statement_.deadline && now >= *statement_.deadline;
    if (isLate_ || !statement_.isUnwanted || now < statement_.nextQuestion)
        return isLate_;
    try {
        isStopped_ = statement_.isUnwanted();
    } catch (...) {
        fault_ = std::current_exception();
    }
    const auto answered = Clock::now();
    statement_.nextQuestion = answered + InnerInterval;
    if (statement_.deadline)
        *statement_.deadline += answered - now;  // the engine has not worked meanwhile
    return isStopped_ || fault_;
}

void StatementCanceller::end() {
    finish();
    if (!isStopped_ && !isLate_ && !fault_)
        return;
    Session& session = *statement_.session();
    session.failed = true;
    session.undone = true;
    // A driver that fetches rows from a server as they are walked has a transaction of its own for that,
    // which would stay failed. The next operation connects anew.
    if (!session.inTransaction && session.progress() == nullptr && !session.buffersResultSets())
        session.lost = true;
    if (fault_)
        std::rethrow_exception(fault_);
    if (isStopped_)
        throw Stopped{};
    throw Error("The statement took longer than its time-out");
}

/// Nobody is asked any more from here on; may be called again.
void StatementCanceller::finish() {
    if (listens_) {
        statement_.session()->progress()->setListener(nullptr);
        listens_ = false;
    }
    if (!watched_)
        return;
    Watcher::instance().remove(*watched_);
    if (watched_->asker.joinable()) {
        {
            const std::lock_guard lock{watched_->mutex};
            watched_->isOver = true;
        }
        watched_->over.notify_all();
        watched_->asker.join();
    }
    isStopped_ = watched_->isStopped;
    fault_ = watched_->fault;
    watched_.reset();
}

}  // namespace tessaly::db::detail
