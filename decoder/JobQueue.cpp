#include "decoder/JobQueue.h"

#include <algorithm>
#include <chrono>
#include <tuple>

namespace tessaly::decoder {

namespace {

constexpr std::chrono::milliseconds AskInterval{100};

constexpr std::uint64_t shareOfLarge(std::uint64_t memory) {
    return memory - memory / 4;
}

}  // namespace

JobQueue::JobQueue(Limits limits) : limits_{std::max<std::size_t>(1, limits.processes), limits.memory} {}

std::uint64_t JobQueue::granted(const Need& need) const {
    return std::min(need.memory, need.isLarge ? shareOfLarge(limits_.memory) : limits_.memory);
}

std::size_t JobQueue::waiting() const {
    const std::lock_guard lock{mutex_};
    return queue_.size();
}

/// By what large jobs may have together.
bool JobQueue::isAllowed(const Need& need) const {
    const std::size_t most = std::max<std::size_t>(1, limits_.processes - 1);
    return !need.isLarge ||
           (large_.jobs < most && large_.memory + need.memory <= shareOfLarge(limits_.memory));
}

bool JobQueue::hasRoomFor(const Need& need) const {
    return isAllowed(need) && all_.jobs < limits_.processes && all_.memory + need.memory <= limits_.memory;
}

/// Small jobs pass a large one that other large ones keep from its turn. One that is next and lacks memory is
/// not passed: it would wait for ever.
bool JobQueue::isNext(Queue::const_iterator place) const {
    const auto rank = [this](const Waiting& one) {
        const Requestor& requestor = requestors_.at(one.requestor);
        return std::tuple{requestor.running, requestor.begun};
    };
    const auto isBefore = [&rank](const Waiting& one, const Waiting& other) {
        return rank(one) < rank(other);
    };
    auto first = queue_.end();
    for (auto one = queue_.begin(); one != queue_.end(); ++one) {
        if (isAllowed(one->need) && (first == queue_.end() || isBefore(*one, *first)))
            first = one;
    }
    return first == place;
}

void JobQueue::use(const Need& need, std::uint64_t requestor) {
    Requestor& its = requestors_.at(requestor);
    ++its.running;
    its.begun = ++begun_;
    all_.add(need);
    if (need.isLarge)
        large_.add(need);
}

void JobQueue::forget(std::uint64_t requestor) {
    const auto its = requestors_.find(requestor);
    if (--its->second.known == 0)
        requestors_.erase(its);
}

JobQueue::Turn::Turn(JobQueue& queue, const Need& need, const Interest& interest)
    : queue_(queue), need_{queue.granted(need), need.isLarge}, requestor_(interest.requestor) {
    std::unique_lock lock{queue_.mutex_};
    ++queue_.requestors_[requestor_].known;
    const auto place = queue_.queue_.insert(queue_.queue_.end(), {need_, requestor_});
    const auto isDue = [this, place] { return queue_.hasRoomFor(need_) && queue_.isNext(place); };
    try {
        while (!queue_.changed_.wait_for(lock, interest.stop, AskInterval, isDue)) {
            require(interest);
            if (!interest.isGivenUp)
                continue;
            lock.unlock();
            const bool isGivenUp = interest.isGivenUp();
            lock.lock();
            if (isGivenUp)
                throw Abandoned{};
        }
    } catch (...) {
        if (!lock.owns_lock())
            lock.lock();
        queue_.queue_.erase(place);
        queue_.forget(requestor_);
        queue_.changed_.notify_all();
        throw;
    }
    queue_.queue_.erase(place);
    queue_.use(need_, requestor_);
    queue_.changed_.notify_all();
}

JobQueue::Turn::~Turn() {
    const std::lock_guard lock{queue_.mutex_};
    queue_.all_.remove(need_);
    if (need_.isLarge)
        queue_.large_.remove(need_);
    --queue_.requestors_.at(requestor_).running;
    queue_.forget(requestor_);
    queue_.changed_.notify_all();
}

}  // namespace tessaly::decoder
