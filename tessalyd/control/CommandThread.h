#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace tessaly::tessalyd {

/// Runs commands one after the other in a thread of its own. Thread-safe. Made of the standard library alone,
/// so that the thread sanitizer sees what it orders.
class CommandThread {
  public:
    /// Must not throw.
    using Command = std::function<void()>;

    CommandThread();
    /// Runs what is left first; nothing is to be added any more.
    ~CommandThread();
    CommandThread(const CommandThread&) = delete;
    CommandThread& operator=(const CommandThread&) = delete;

    void add(Command command);
    /// Waits until there is nothing left to run, but no longer than that. To be called from another thread.
    void waitUntilIdle(std::chrono::milliseconds longest);

  private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Command> commands_;  // the first is the one that is being run
    bool ending_ = false;
    std::thread thread_;  // last: it uses all the others
};

}  // namespace tessaly::tessalyd
