#pragma once

#include <chrono>
#include <stop_token>

#include "dicom/net/transport/Patience.h"

namespace tessaly::dicom {

/// How long a thread may wait for a peer: until one point in time, while the peer keeps its pace, and not
/// beyond a stop. Belongs to one thread; the stop may come from any.
class IoLimits {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr Clock::time_point NoDeadline = Clock::time_point::max();
    static constexpr std::chrono::milliseconds NoLimit = Pace::NoLimit;

    /// The pace is for each direction of a connection by itself. Throws std::system_error.
    explicit IoLimits(std::stop_token stop, Clock::time_point deadline = NoDeadline, const Pace& pace = {});
    IoLimits(const IoLimits&) = delete;
    IoLimits& operator=(const IoLimits&) = delete;

    [[nodiscard]] Clock::time_point deadline() const noexcept { return deadline_; }
    void setDeadline(Clock::time_point deadline) noexcept { deadline_ = deadline; }
    [[nodiscard]] const Pace& pace() const noexcept { return pace_; }
    [[nodiscard]] bool isExpired() const noexcept { return Clock::now() >= deadline_; }
    [[nodiscard]] bool isStopped() const noexcept { return stop_.stop_requested(); }
    [[nodiscard]] const std::stop_token& stop() const noexcept { return stop_; }

    /// Waits for what poll() calls `event`. False when the time or the stop came first.
    [[nodiscard]] bool wait(int socket, short event, std::chrono::milliseconds atMost = NoLimit) const;

  private:
    /// What poll() sees of a stop.
    class Event {
      public:
        Event();
        ~Event();
        Event(const Event&) = delete;
        Event& operator=(const Event&) = delete;
        void raise() const noexcept;
        [[nodiscard]] int get() const noexcept { return fd_; }

      private:
        int fd_;
    };
    struct Raise {
        const Event& event;
        void operator()() const noexcept { event.raise(); }
    };

    Clock::time_point deadline_;
    Pace pace_;
    std::stop_token stop_;
    Event stopped_;
    std::stop_callback<Raise> raise_;  // after the event, which it needs to its end
};

}  // namespace tessaly::dicom
