#include "tessalyd/store/ArchiveSessions.h"

#include <algorithm>
#include <memory>

#include "tessalyd/store/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

constexpr std::chrono::seconds UsualWait{5};

}  // namespace

void ArchiveSessions::configure(std::chrono::seconds wait, std::size_t most) {
    wait_ = wait;
    most_ = most;
    setMost();
    close();
}

void ArchiveSessions::setMost() {
    pool_.setMost(areSideBySide_ ? most_.load() : 1);
}

void ArchiveSessions::suspend() {
    isSuspended_ = true;
    pool_.wake();
    close();
}

std::chrono::seconds ArchiveSessions::patience() const noexcept {
    const std::chrono::seconds wait = wait_;
    return wait > std::chrono::seconds::zero() ? wait : UsualWait;
}

ArchiveSessions::Lease ArchiveSessions::take() {
    auto lease = pool_.take(patience(), [this] { return isSuspended_.load(); });
    if (isSuspended_)
        throw databaseMoved();
    if (!lease)
        throw othersAreWaiting();
    if (lease->isEmpty()) {
        auto opened = std::make_unique<ArchiveSession>(wait_.load());
        areSideBySide_ = opened->supportsConcurrentWriters();
        lease->set(std::move(opened));
        setMost();
    } else if (!(*lease)->isInPlace()) {
        lease->discard();
        close();  // the others are no better
        throw databaseMoved();
    }
    return std::move(*lease);
}

}  // namespace tessaly::tessalyd
