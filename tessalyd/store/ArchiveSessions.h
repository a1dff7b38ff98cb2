#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>

#include "base/ResourcePool.h"
#include "tessalyd/store/ArchiveSession.h"

namespace tessaly::tessalyd {

/// The connections that stores write by. Where the engine lets several write side by side there is one for
/// each store that is at its tables, within the limit. Elsewhere one serves all in turn: with a connection
/// each, those that must wait would sleep and try again instead of being woken. They are opened as they are
/// needed and kept with their prepared statements. Thread-safe.
class ArchiveSessions {
  public:
    ArchiveSessions() = default;
    ArchiveSessions(const ArchiveSessions&) = delete;
    ArchiveSessions& operator=(const ArchiveSessions&) = delete;

    /// `wait`: how long a store waits for the engine's locks, and as long again for the other stores; zero:
    /// what the data source says, and some seconds for the others. `most`: how many connections there may be;
    /// one at least. Holds from the next store on.
    void configure(std::chrono::seconds wait, std::size_t most);

    /// Closes those that nobody uses; the others are closed when they come back. The next use opens new ones.
    void close() { pool_.close(); }

    /// Until resume(), none is given out: the database's file is not the one that it was.
    void suspend();
    void resume() { isSuspended_ = false; }

    /// One connection's use by one thread.
    using Lease = base::ResourcePool<ArchiveSession>::Lease;

    /// Throws StoreFailure when others have them all, or are opening one, for too long, and when the
    /// database's file has lost its place; db::Error when none can be opened.
    [[nodiscard]] Lease take();

    /// How long a store waits for the others.
    [[nodiscard]] std::chrono::seconds patience() const noexcept;

    /// What is known of the engine: that it lets several write side by side.
    [[nodiscard]] bool areSideBySide() const noexcept { return areSideBySide_; }

  private:
    void setMost();

    base::ResourcePool<ArchiveSession> pool_{1};
    std::atomic<bool> isSuspended_ = false;
    std::atomic<std::chrono::seconds> wait_{std::chrono::seconds{0}};
    std::atomic<std::size_t> most_ = 1;
    std::atomic<bool> areSideBySide_ = false;  // as the last one opened says
};

}  // namespace tessaly::tessalyd
