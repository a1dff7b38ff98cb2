#pragma once

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
    using Work = std::function<void(const std::stop_token&)>;

    AssociationThreads() = default;
    ~AssociationThreads() { finish(); }
    AssociationThreads(const AssociationThreads&) = delete;
    AssociationThreads& operator=(const AssociationThreads&) = delete;

    void setLimit(std::size_t limit);

    /// Runs `work`, which must not throw, in a thread of its own. False when as many as the limit are running
    /// or the system has no more; `work` is then dropped with all it holds.
    [[nodiscard]] bool start(Work work);

    /// Names all threads started so far for stopThrough().
    [[nodiscard]] std::uint64_t latest() const;
    void stopThrough(std::uint64_t last);

    /// Stops all and waits for them; start() is refused from here on.
    void finish();

  private:
    struct Running {
        std::uint64_t number = 0;
        std::stop_source stop;
        bool done = false;
        std::jthread thread;
    };
    using List = std::list<Running>;

    [[nodiscard]] List takeDone();

    mutable std::mutex mutex_;
    List running_;
    std::size_t limit_ = 0;
    std::uint64_t latest_ = 0;
};

}  // namespace tessaly::tessalyd
