#include "tessalyd/store/ArchiveSessions.h"

#include <algorithm>

#include "tessalyd/store/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

constexpr std::chrono::seconds UsualWait{5};

}  // namespace

void ArchiveSessions::configure(std::chrono::seconds wait, std::size_t most) {
    std::vector<std::unique_ptr<ArchiveSession>> closed;  // outside the lock
    {
        const std::lock_guard lock{mutex_};
        wait_ = wait;
        most_ = std::max<std::size_t>(most, 1);
        ++generation_;
        closed.swap(idle_);
    }
    returned_.notify_all();
}

void ArchiveSessions::close() {
    std::vector<std::unique_ptr<ArchiveSession>> closed;  // outside the lock
    const std::lock_guard lock{mutex_};
    ++generation_;
    closed.swap(idle_);
}

void ArchiveSessions::suspend() {
    {
        const std::lock_guard lock{mutex_};
        isSuspended_ = true;
    }
    returned_.notify_all();
    close();
}

void ArchiveSessions::resume() {
    const std::lock_guard lock{mutex_};
    isSuspended_ = false;
}

ArchiveSessions::Lease ArchiveSessions::take() {
    std::unique_lock lock{mutex_};
    const std::chrono::seconds wait = wait_;
    const auto isReady = [this] {
        return isSuspended_ || (inUse_ < limit() && (!idle_.empty() || !isOpening_));
    };
    if (!returned_.wait_for(lock, wait > std::chrono::seconds::zero() ? wait : UsualWait, isReady))
        throw databaseRefused("other stores are waiting for it");
    if (isSuspended_)
        throw databaseMoved();
    ++inUse_;
    const unsigned generation = generation_;
    if (idle_.empty())
        return open(std::move(lock), wait);
    std::unique_ptr<ArchiveSession> session = std::move(idle_.back());
    idle_.pop_back();
    lock.unlock();
    if (session->isInPlace())
        return {*this, std::move(session), generation};
    session.reset();
    giveBack(nullptr, generation);
    close();  // the others are no better
    throw databaseMoved();
}

ArchiveSessions::Lease ArchiveSessions::open(std::unique_lock<std::mutex> lock, std::chrono::seconds wait) {
    const unsigned generation = generation_;
    std::unique_ptr<ArchiveSession> session;
    isOpening_ = true;
    lock.unlock();
    try {
        session = std::make_unique<ArchiveSession>(wait);
    } catch (...) {
        lock.lock();
        isOpening_ = false;
        lock.unlock();
        giveBack(nullptr, generation);
        throw;
    }
    lock.lock();
    isOpening_ = false;
    sideBySide_ = session->supportsConcurrentWriters();
    lock.unlock();
    returned_.notify_all();
    return {*this, std::move(session), generation};
}

bool ArchiveSessions::areSideBySide() {
    const std::lock_guard lock{mutex_};
    return sideBySide_;
}

void ArchiveSessions::giveBack(std::unique_ptr<ArchiveSession> session, unsigned generation) noexcept {
    {
        const std::lock_guard lock{mutex_};
        --inUse_;
        if (session && generation == generation_)
            idle_.push_back(std::move(session));
    }
    returned_.notify_one();
}

}  // namespace tessaly::tessalyd
