#pragma once

#include <mutex>
#include <set>

namespace tessaly::tessalyd::ftp {

/// The sockets of a connection, so that whatever waits on one of them, in calls that do not ask whether to go
/// on, can be woken from another thread. Thread-safe.
class OpenSockets {
  public:
    /// A new socket; -1 after shutDown(), or with errno set.
    [[nodiscard]] int open(int family, int type, int protocol);
    void close(int socket);
    /// The one that was opened last, as long as it is open; else -1.
    [[nodiscard]] int latest();

    /// Ends what is open, and has open() fail from now on.
    void shutDown();
    /// Nothing is awaited from the other side any more: reading gives the end at once. What is written still
    /// goes out.
    void endReading();

  private:
    std::mutex mutex_;
    std::set<int> sockets_;
    int latest_ = -1;
    bool isShutDown_ = false;
};

}  // namespace tessaly::tessalyd::ftp
