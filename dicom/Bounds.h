#pragma once

#include <chrono>
#include <stop_token>

namespace tessaly::dicom {

/// How long a thread may wait for a peer: until one point in time, no longer than so long at a time, and not
/// beyond a stop. Belongs to one thread; the stop may come from any.
class Bounds {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr Clock::time_point NoDeadline = Clock::time_point::max();
    static constexpr std::chrono::milliseconds NoLimit = std::chrono::milliseconds::max();

    /// `silence` is for one wait. Throws std::system_error.
    explicit Bounds(std::stop_token stop, Clock::time_point deadline = NoDeadline,
                    std::chrono::milliseconds silence = NoLimit);
    ~Bounds();
    Bounds(const Bounds&) = delete;
    Bounds& operator=(const Bounds&) = delete;

    [[nodiscard]] Clock::time_point deadline() const noexcept { return deadline_; }
    void setDeadline(Clock::time_point deadline) noexcept { deadline_ = deadline; }
    [[nodiscard]] bool isExpired() const noexcept { return Clock::now() >= deadline_; }
    [[nodiscard]] bool isStopped() const noexcept { return stop_.stop_requested(); }

    /// Waits for what poll() calls `event`. False when the time or the stop came first.
    [[nodiscard]] bool wait(int socket, short event, std::chrono::milliseconds atMost = NoLimit) const;

  private:
    struct WakeUp {
        int event;
        void operator()() const noexcept;
    };

    Clock::time_point deadline_;
    std::chrono::milliseconds silence_;
    std::stop_token stop_;
    int stopped_;  // an event that a stop raises
    std::stop_callback<WakeUp> raise_;
};

}  // namespace tessaly::dicom
