#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "tessalyd/services/retrieve/SubOperations.h"

namespace tessaly::tessalyd {

/// How far a move is that works in a thread of its own: counted by that, asked for by the association's.
class MoveProgress {
  public:
    explicit MoveProgress(std::size_t instances) : operations_(instances) {}

    // By the thread that works.
    void complete() {
        const std::lock_guard lock{mutex_};
        operations_.complete();
    }
    void warn() {
        const std::lock_guard lock{mutex_};
        operations_.warn();
    }
    void fail(const std::string& sopInstanceUid) {
        const std::lock_guard lock{mutex_};
        operations_.fail(sopInstanceUid);
    }
    /// What is left failed without a name.
    void failRest() {
        const std::lock_guard lock{mutex_};
        while (operations_.remaining() > 0)
            operations_.fail();
    }
    void end() {
        const std::lock_guard lock{mutex_};
        hasEnded_ = true;
        ended_.notify_all();
    }

    [[nodiscard]] std::size_t remaining() const {
        const std::lock_guard lock{mutex_};
        return operations_.remaining();
    }

    // By the other one.
    [[nodiscard]] SubOperations operations() const {
        const std::lock_guard lock{mutex_};
        return operations_;
    }
    /// Waits so long; true once it is over.
    [[nodiscard]] bool waitForEnd(std::chrono::milliseconds atMost) {
        std::unique_lock lock{mutex_};
        return ended_.wait_for(lock, atMost, [this] { return hasEnded_; });
    }
    void awaitEnd() {
        std::unique_lock lock{mutex_};
        ended_.wait(lock, [this] { return hasEnded_; });
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable ended_;
    SubOperations operations_;
    bool hasEnded_ = false;
};

}  // namespace tessaly::tessalyd
