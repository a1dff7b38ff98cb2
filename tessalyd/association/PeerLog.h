#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace tessaly::tessalyd {

/// The log's lines that peers can cause as often as they like, bounded in number. Of each kind of event some
/// lines are written at once; beyond them, one a second stands for all that came since the one before. Each
/// second without an event allows another line at once. Thread-safe.
class PeerLog {
  public:
    enum class Event {
        Connection,   ///< no room for a connection, or another had to go for it
        Rejection,    ///< of an association request
        Association,  ///< accepted, ended
        Refusal,      ///< of a request of somebody who may not make it
        Failure,      ///< of a request, by level Errors
        Fault         ///< of a peer, by level Warnings
    };

    /// `interval` is the second.
    explicit PeerLog(std::chrono::milliseconds interval = std::chrono::seconds{1});
    /// Writes what has not been written yet.
    ~PeerLog();
    PeerLog(const PeerLog&) = delete;
    PeerLog& operator=(const PeerLog&) = delete;

    void add(Event event, const std::string& line);

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t Kinds = 6;

    struct Kind {
        double allowed = 0;  // lines that may be written at once
        Clock::time_point counted;
        Clock::time_point due;  // when those that wait are written
        std::uint64_t waiting = 0;
        std::string latest;
    };

    void run(const std::stop_token& stop);
    /// Writes what is due. Returns when to do so again.
    Clock::time_point writeDue(Clock::time_point now);
    static void writeWaiting(std::size_t number, Kind& kind);

    const std::chrono::milliseconds interval_;
    std::mutex mutex_;
    std::condition_variable_any waits_;
    std::array<Kind, Kinds> kinds_;
    std::jthread thread_;  // last: it uses the others
};

}  // namespace tessaly::tessalyd
