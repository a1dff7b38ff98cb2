#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <stop_token>
#include <thread>

namespace tessaly::tessalyd {

/// The threads of the connections, one each, with what stops them. Thread-safe.
class AssociationThreads {
  public:
    enum class Stage : std::uint8_t {
        Silent,  ///< no whole association request has come
        Open,
        Ending  ///< rejected or over; the peer is to close the connection
    };
    /// A connection as its thread sees it.
    struct Connection {
        std::uint64_t address = 0;  ///< of the peer's host (SocketAddress::hostKey)
        std::stop_source stop = {};
        std::atomic<Stage> stage = Stage::Silent;
    };
    using Work = std::function<void(Connection&)>;
    enum class Started {
        Yes,
        InPlaceOfAnother,  ///< which has been stopped
        No                 ///< `work` was dropped with all it holds
    };

    AssociationThreads() = default;
    ~AssociationThreads() { finish(); }
    AssociationThreads(const AssociationThreads&) = delete;
    AssociationThreads& operator=(const AssociationThreads&) = delete;

    void setLimit(std::size_t limit);

    /// Runs `work`, which must not throw, in a thread of its own. Where as many as the limit are running, the
    /// oldest silent connection of the address that has most of these is stopped for it, or else the oldest
    /// that is ending. It is not started where there is none of them, and where the system has no thread.
    [[nodiscard]] Started start(std::uint64_t address, Work work);

    /// Names all threads started so far for stopThrough().
    [[nodiscard]] std::uint64_t latest() const;
    void stopThrough(std::uint64_t last);

    /// Stops all and waits for them; start() is refused from here on.
    void finish();

  private:
    struct Running {
        std::uint64_t number = 0;
        Connection connection;
        bool isDisplaced = false;
        bool done = false;
        std::jthread thread;
    };
    using List = std::list<Running>;

    [[nodiscard]] List takeDone();
    [[nodiscard]] bool makeRoom();
    [[nodiscard]] Running* displaceable();

    mutable std::mutex mutex_;
    List running_;
    std::size_t displaced_ = 0;  // of the running ones: they are about to end, and no longer counted
    std::size_t limit_ = 0;
    std::uint64_t latest_ = 0;
};

}  // namespace tessaly::tessalyd
