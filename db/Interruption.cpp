#include "db/Interruption.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace tessaly::db::detail {

namespace {

using Clock = std::chrono::steady_clock;

/// Most statements are over before anybody is asked.
constexpr std::chrono::milliseconds Interval{100};

}  // namespace

/// One statement. Its mutex keeps its own thread from going on while the question is asked.
struct Interruption::Watched {
    Watched(SQLHSTMT runs, const std::function<bool()>& question) : statement(runs), isUnwanted(question) {}

    void look() {
        const std::lock_guard lock{mutex};
        if (isOver || Clock::now() < due)
            return;
        due = Clock::now() + Interval;
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
    }

    std::mutex mutex;
    const SQLHSTMT statement;
    const std::function<bool()>& isUnwanted;
    Clock::time_point due = Clock::now() + Interval;
    bool isOver = false;
    bool isStopped = false;
    std::exception_ptr fault;
};

/// The thread that asks, for all statements of the process. A question that takes long delays the others, and
/// nothing but them.
class Interruption::Watcher {
  public:
    static Watcher& instance() {
        static Watcher watcher;
        return watcher;
    }

    void add(std::shared_ptr<Watched> watched) {
        const std::lock_guard lock{mutex_};
        watched_.push_back(std::move(watched));
        if (std::exchange(isIdle_, false))
            begun_.notify_one();
    }
    void remove(const std::shared_ptr<Watched>& watched) {
        const std::lock_guard lock{mutex_};
        std::erase(watched_, watched);
    }

  private:
    void run(const std::stop_token& stop) {
        std::unique_lock lock{mutex_};
        while (!stop.stop_requested()) {
            if (watched_.empty()) {
                isIdle_ = true;
                begun_.wait(lock, stop, [this] { return !isIdle_; });
            }
            begun_.wait_for(lock, stop, Interval / 2, [] { return false; });
            const auto all = watched_;
            lock.unlock();
            for (const auto& watched : all)
                watched->look();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable_any begun_;
    std::vector<std::shared_ptr<Watched>> watched_;
    bool isIdle_ = false;
    std::jthread thread_{[this](const std::stop_token& stop) { run(stop); }};  // last: it uses the others
};

Interruption::Interruption(const Statement& statement, const std::function<bool()>& isUnwanted) {
    if (!isUnwanted || !statement.session()->engine().endsStatementsFromElsewhere())
        return;
    watched_ = std::make_shared<Watched>(statement.get(), isUnwanted);
    Watcher::instance().add(watched_);
}

Interruption::~Interruption() {
    if (!watched_)
        return;
    {
        const std::lock_guard lock{watched_->mutex};
        watched_->isOver = true;
    }
    Watcher::instance().remove(watched_);
}

void Interruption::end() {
    if (!watched_)
        return;
    const std::lock_guard lock{watched_->mutex};
    watched_->isOver = true;
    if (watched_->fault)
        std::rethrow_exception(watched_->fault);
    if (watched_->isStopped)
        throw Stopped{};
}

}  // namespace tessaly::db::detail
