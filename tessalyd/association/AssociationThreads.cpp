#include "tessalyd/association/AssociationThreads.h"

#include <map>
#include <system_error>

namespace tessaly::tessalyd {

void AssociationThreads::setLimit(std::size_t limit) {
    const std::lock_guard lock{mutex_};
    limit_ = limit;
}

AssociationThreads::Started AssociationThreads::start(std::uint64_t address, Work work) {
    List done;  // its threads are joined after the lock is given back
    const std::lock_guard lock{mutex_};
    done = takeDone();
    const bool isFull = running_.size() - displaced_ >= limit_;
    if (isFull && !makeRoom())
        return Started::No;
    Running& mine = running_.emplace_back();
    mine.number = ++latest_;
    mine.connection.address = address;
    try {
        mine.thread = std::jthread{[this, &mine, work = std::move(work)] {
            work(mine.connection);
            const std::lock_guard atEnd{mutex_};
            mine.done = true;
        }};
    } catch (const std::system_error&) {
        running_.pop_back();
        return Started::No;
    }
    return isFull ? Started::InPlaceOfAnother : Started::Yes;
}

bool AssociationThreads::makeRoom() {
    constexpr std::size_t MostDisplaced = 64;  // they end within milliseconds
    Running* const other = limit_ > 0 && displaced_ < MostDisplaced ? displaceable() : nullptr;
    if (other == nullptr)
        return false;
    other->isDisplaced = true;
    ++displaced_;
    other->connection.stop.request_stop();
    return true;
}

AssociationThreads::Running* AssociationThreads::displaceable() {
    std::map<std::uint64_t, std::size_t> silent;  // by address
    for (const Running& one : running_) {
        if (!one.done && !one.isDisplaced && one.connection.stage == Stage::Silent)
            ++silent[one.connection.address];
    }
    Running* chosen = nullptr;
    std::size_t most = 0;
    for (Running& one : running_) {  // the oldest first
        if (one.done || one.isDisplaced)
            continue;
        const Stage stage = one.connection.stage;
        const std::size_t count = stage == Stage::Silent ? silent[one.connection.address] : 0;
        if ((stage == Stage::Silent && count > most) || (stage == Stage::Ending && chosen == nullptr)) {
            chosen = &one;
            most = count;
        }
    }
    return chosen;
}

std::uint64_t AssociationThreads::latest() const {
    const std::lock_guard lock{mutex_};
    return latest_;
}

void AssociationThreads::stopThrough(std::uint64_t last) {
    const std::lock_guard lock{mutex_};
    for (Running& one : running_) {
        if (one.number <= last)
            one.connection.stop.request_stop();
    }
}

void AssociationThreads::finish() {
    {
        const std::lock_guard lock{mutex_};
        limit_ = 0;
    }
    stopThrough(latest());
    List all;  // joined after the lock is given back: stopThrough() may be called meanwhile
    const std::lock_guard lock{mutex_};
    all.splice(all.end(), running_);
}

AssociationThreads::List AssociationThreads::takeDone() {
    List done;
    for (auto one = running_.begin(); one != running_.end();) {
        const auto next = std::next(one);
        if (one->done) {
            displaced_ -= one->isDisplaced ? 1 : 0;
            done.splice(done.end(), running_, one);
        }
        one = next;
    }
    return done;
}

}  // namespace tessaly::tessalyd
