#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

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
    void close();

    /// Until resume(), none is given out: the database's file is not the one that it was.
    void suspend();
    void resume();

    /// One connection's use by one thread.
    class Lease {
      public:
        Lease(ArchiveSessions& owner, std::unique_ptr<ArchiveSession> session, unsigned generation)
            : owner_(owner), session_(std::move(session)), generation_(generation) {}
        ~Lease() { owner_.giveBack(std::move(session_), generation_); }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        [[nodiscard]] ArchiveSession& operator*() const noexcept { return *session_; }
        [[nodiscard]] ArchiveSession* operator->() const noexcept { return session_.get(); }
        /// Closes it instead of keeping it: it may be what is broken.
        void discard() noexcept { session_.reset(); }

      private:
        ArchiveSessions& owner_;
        std::unique_ptr<ArchiveSession> session_;
        unsigned generation_;
    };

    /// Throws StoreFailure when others have them all, or are opening one, for too long, and when the
    /// database's file has lost its place; db::Error when none can be opened. One is opened at a time: a
    /// database server that says nothing holds up all who wait for it together, and not one after the other.
    [[nodiscard]] Lease take();

    /// What is known of the engine: that it lets several write side by side.
    [[nodiscard]] bool areSideBySide();

  private:
    [[nodiscard]] Lease open(std::unique_lock<std::mutex> lock, std::chrono::seconds wait);
    void giveBack(std::unique_ptr<ArchiveSession> session, unsigned generation) noexcept;
    [[nodiscard]] std::size_t limit() const noexcept { return sideBySide_ ? most_ : 1; }

    std::mutex mutex_;
    std::condition_variable returned_;
    std::vector<std::unique_ptr<ArchiveSession>> idle_;  // the last one used at the end
    std::size_t inUse_ = 0;
    bool isOpening_ = false;
    bool isSuspended_ = false;
    unsigned generation_ = 0;
    std::chrono::seconds wait_{0};
    std::size_t most_ = 1;
    bool sideBySide_ = false;  // as the last one opened says
};

}  // namespace tessaly::tessalyd
