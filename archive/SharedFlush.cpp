#include "archive/SharedFlush.h"

namespace tessaly::archive {

bool SharedFlush::run(const Folder& folder, const std::function<bool()>& flush) {
    std::unique_lock lock{mutex_};
    const auto found = states_.try_emplace(folder).first;
    State& state = found->second;
    ++state.users;
    const Number own = state.begun + 1;  // one that is under way may have begun too early
    while (state.ended < own) {
        if (state.begun != state.ended) {
            ended_.wait(lock);
            continue;
        }
        const Number number = ++state.begun;
        lock.unlock();
        const bool isFlushed = flush();
        lock.lock();
        if (!isFlushed)
            state.failed.insert(number);
        state.ended = number;
        ended_.notify_all();
    }
    const bool isFlushed = !state.failed.contains(own);
    if (--state.users == 0)
        states_.erase(found);
    return isFlushed;
}

}  // namespace tessaly::archive
