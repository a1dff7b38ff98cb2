#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>

namespace tessaly::tessalyd {

/// A search took longer than it may.
class SearchTimeout : public std::runtime_error {
  public:
    SearchTimeout() : std::runtime_error("The query took longer than its time-out") {}
};

struct SearchLimits {
    std::chrono::seconds timeout{
        0};  ///< of the search's own work, not of what its user does between; zero: none
    /// Asked now and then, some hundred times a second, while no answer comes: true ends the search. It may
    /// take its time, which is not the search's. While the engine works on a statement it may be asked in
    /// another thread; that of the search waits then.
    std::function<bool()> stop = {};
};

/// Keeps a search within its limits: counts the time that it works, and asks whether it is still wanted.
class SearchClock {
  public:
    using Clock = std::chrono::steady_clock;

    explicit SearchClock(SearchLimits limits) : limits_(std::move(limits)) {}

    [[nodiscard]] std::chrono::seconds timeout() const noexcept { return limits_.timeout; }
    [[nodiscard]] bool hasLimits() const noexcept {
        return limits_.stop || limits_.timeout > std::chrono::seconds::zero();
    }

    /// The work begins, or goes on.
    void start();
    /// The work pauses.
    void pause() { worked_ += Clock::now() - since_; }
    /// To be called for each row. Returns true when the search is stopped. Throws SearchTimeout.
    bool watch();
    /// The same at once.
    bool look();

    /// For a statement that the engine works on: whether it is to be ended.
    [[nodiscard]] bool endsStatement();
    /// A statement was ended: at the time-out, or else nobody wanted it any more.
    [[nodiscard]] bool isLate() const noexcept { return isLate_; }
    void expectStatement() noexcept {
        isLate_ = false;
        statementSince_ = Clock::now();
    }
    /// A statement failed: whether that may have been the time-out of an engine that keeps it by itself and
    /// works on while somebody is asked.
    [[nodiscard]] bool mayHaveTimedOut() const;

    void setStopped() noexcept { stopped_ = true; }
    [[nodiscard]] bool wasStopped() const noexcept { return stopped_; }

    /// Time that goes by for the search alone, without that for asking.
    [[nodiscard]] Clock::time_point ownTime() const { return Clock::now() - asking_; }

  private:
    [[nodiscard]] bool isOver(Clock::time_point now = Clock::now()) const;
    [[nodiscard]] bool isUnwanted();

    SearchLimits limits_;
    Clock::duration worked_{0};
    Clock::time_point since_;  // as if nobody had been asked in between
    Clock::duration asking_{0};
    Clock::time_point lastAsked_;
    Clock::time_point statementSince_;
    unsigned rowsSeen_ = 0;
    bool stopped_ = false;
    bool isLate_ = false;
};

}  // namespace tessaly::tessalyd
