#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <utility>

namespace tessaly::archive {

/// Flushes folders for threads that may want the same one at the same time: one flush that begins after all
/// of them have made their changes serves them all. Thread-safe.
class SharedFlush {
  public:
    using Folder = std::pair<dev_t, ino_t>;

    /// Returns when a flush has ended that began after this call: that of `flush`, or another thread's.
    /// Returns what it returned, true for one that has succeeded. `flush` throws nothing.
    [[nodiscard]] bool run(const Folder& folder, const std::function<bool()>& flush);

  private:
    using Number = unsigned long long;
    struct State {
        Number begun = 0;  ///< the number of the last flush that has begun
        Number ended = 0;
        std::set<Number> failed = {};
        int users = 0;
    };

    std::mutex mutex_;
    std::condition_variable ended_;
    std::map<Folder, State> states_;  ///< of the folders that somebody uses
};

}  // namespace tessaly::archive
