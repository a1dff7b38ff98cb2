#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <span>

#include "tessalyd/store/ArchiveSession.h"

namespace tessaly::tessalyd {

/// Brings the stores together that wait for their turn to write at the same time: one thread writes for all
/// of them, in one transaction that is flushed once. For engines that let one write at a time. Thread-safe.
class GroupCommit {
  public:
    static constexpr std::size_t MostAtOnce = 64;

    /// Writes the rows of all that are given, and sets the faults of those whose rows are not written. Throws
    /// nothing. Its caller is one thread at a time.
    using Write = std::function<void(std::span<ObjectRows* const>)>;

    /// Returns when the rows are written, by this thread or by another one that waited too, or when their
    /// fault is set. Returns false if others were at it for so long that theirs were not begun.
    [[nodiscard]] bool run(ObjectRows& rows, std::chrono::milliseconds wait, const Write& write);

  private:
    /// A thread that waits. Woken when its rows are written, or when it is its turn to write.
    struct Waiting {
        ObjectRows* rows;
        enum class State { Queued, Taken, Done } state = State::Queued;
        std::condition_variable changed = {};
    };
    void writeSome(std::unique_lock<std::mutex>& lock, const Write& write);

    std::mutex mutex_;
    std::deque<Waiting*> queue_;
    bool isWriting_ = false;
};

}  // namespace tessaly::tessalyd
