#pragma once

#include <atomic>
#include <mutex>

namespace tessaly::tessalyd {

/// Ends a thread's waiting on its connection from another thread. The waiting thread then finds interrupted()
/// true and can still send: an abort to its peer, for example.
class Interrupter {
  public:
    /// From any thread, at any time, as often as wanted.
    void interrupt() noexcept;
    [[nodiscard]] bool interrupted() const noexcept { return interrupted_; }

    /// From the thread that owns the connection: between the two calls its socket is woken by interrupt().
    void attach(int socket) noexcept;
    void detach() noexcept;

  private:
    std::atomic<bool> interrupted_{false};
    std::mutex mutex_;  // no socket number is used again while one that it stood for is being woken
    int socket_ = -1;
};

}  // namespace tessaly::tessalyd
