#include "tessalyd/association/AssociationThreads.h"

#include <system_error>

namespace tessaly::tessalyd {

void AssociationThreads::setLimit(std::size_t limit) {
    const std::lock_guard lock{mutex_};
    limit_ = limit;
}

bool AssociationThreads::start(Work work) {
    List done;  // its threads are joined after the lock is given back
    const std::lock_guard lock{mutex_};
    done = takeDone();
    if (running_.size() >= limit_)
        return false;
    Running& mine = running_.emplace_back();
    mine.number = ++latest_;
    try {
        mine.thread = std::jthread{[this, &mine, work = std::move(work)] {
            work(mine.stop.get_token());
            const std::lock_guard atEnd{mutex_};
            mine.done = true;
        }};
    } catch (const std::system_error&) {
        running_.pop_back();
        return false;
    }
    return true;
}

std::uint64_t AssociationThreads::latest() const {
    const std::lock_guard lock{mutex_};
    return latest_;
}

void AssociationThreads::stopThrough(std::uint64_t last) {
    const std::lock_guard lock{mutex_};
    for (Running& one : running_) {
        if (one.number <= last)
            one.stop.request_stop();
    }
}

void AssociationThreads::finish() {
    {
        const std::lock_guard lock{mutex_};
        limit_ = 0;
    }
    stopThrough(latest());
    running_.clear();  // joins; none is added or taken away any more
}

AssociationThreads::List AssociationThreads::takeDone() {
    List done;
    for (auto one = running_.begin(); one != running_.end();) {
        const auto next = std::next(one);
        if (one->done)
            done.splice(done.end(), running_, one);
        one = next;
    }
    return done;
}

}  // namespace tessaly::tessalyd
