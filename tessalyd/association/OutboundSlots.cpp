#include "tessalyd/association/OutboundSlots.h"

#include <algorithm>

namespace tessaly::tessalyd {

std::optional<OutboundSlots::Slot> OutboundSlots::take(const std::string& requestor,
                                                       const std::stop_token& stop) {
    std::unique_lock lock{mutex_};
    const auto mine = waiting_.insert(waiting_.end(), requestor);
    const bool got = changed_.wait(lock, stop, [&] { return free_ > 0 && next() == mine; });
    waiting_.erase(mine);
    // Whoever waits behind this one may be next now.
    changed_.notify_all();
    if (!got)
        return std::nullopt;
    --free_;
    ++held_[requestor];
    return std::optional<Slot>{std::in_place, *this, requestor};
}

std::size_t OutboundSlots::waiting() const {
    const std::lock_guard lock{mutex_};
    return waiting_.size();
}

void OutboundSlots::giveBack(const std::string& requestor) {
    {
        const std::lock_guard lock{mutex_};
        ++free_;
        if (--held_[requestor] == 0)
            held_.erase(requestor);
    }
    changed_.notify_all();
}

OutboundSlots::Waiting::const_iterator OutboundSlots::next() const {
    const auto heldBy = [this](const std::string& requestor) {
        const auto found = held_.find(requestor);
        return found == held_.end() ? std::size_t{0} : found->second;
    };
    return std::min_element(
        waiting_.begin(), waiting_.end(),
        [&](const std::string& one, const std::string& other) { return heldBy(one) < heldBy(other); });
}

}  // namespace tessaly::tessalyd
