#include "tessalyd/store/GroupCommit.h"

#include <algorithm>
#include <vector>

namespace tessaly::tessalyd {

bool GroupCommit::run(ObjectRows& rows, std::chrono::milliseconds wait, const Write& write) {
    using State = Waiting::State;
    const auto until = std::chrono::steady_clock::now() + wait;
    Waiting own{.rows = &rows};
    std::unique_lock lock{mutex_};
    queue_.push_back(&own);
    while (own.state != State::Done) {
        if (!isWriting_) {
            writeSome(lock, write);
        } else if (own.state == State::Taken) {  // its end is bounded by the engine's own limits
            own.changed.wait(lock);
        } else if (own.changed.wait_until(lock, until) == std::cv_status::timeout && isWriting_ &&
                   own.state == State::Queued) {
            std::erase(queue_, &own);
            return false;
        }
    }
    return true;
}

void GroupCommit::writeSome(std::unique_lock<std::mutex>& lock, const Write& write) {
    const auto end = queue_.begin() + static_cast<std::ptrdiff_t>(std::min(queue_.size(), MostAtOnce));
    const std::vector<Waiting*> taken{queue_.begin(), end};
    std::vector<ObjectRows*> group;
    group.reserve(taken.size());
    for (Waiting* waiting : taken)
        group.push_back(waiting->rows);
    queue_.erase(queue_.begin(), end);
    for (Waiting* waiting : taken)
        waiting->state = Waiting::State::Taken;
    isWriting_ = true;
    lock.unlock();
    write(group);
    lock.lock();
    isWriting_ = false;
    if (!queue_.empty())
        queue_.front()->changed.notify_one();  // writes for the next ones
    for (Waiting* waiting : taken) {
        waiting->state = Waiting::State::Done;
        waiting->changed.notify_one();
    }
}

}  // namespace tessaly::tessalyd
