#include "tessalyd/services/Conversions.h"

#include <chrono>
#include <system_error>
#include <utility>

namespace tessaly::tessalyd {

namespace {

constexpr std::chrono::milliseconds AskInterval{100};

template <class Result>
bool isOver(const std::future<Result>& result, std::chrono::milliseconds atMost) {
    return result.wait_for(atMost) == std::future_status::ready;
}

}  // namespace

Conversions::Object Conversions::convert(const std::shared_ptr<dicom::OutgoingObject>& object,
                                         const std::string& syntax, const std::function<bool()>& giveUp) {
    std::packaged_task<Object()> task{[object, syntax] { return object->in(syntax); }};
    Running running{.result = task.get_future(), .thread = {}};
    try {
        running.thread = std::jthread{std::move(task)};
    } catch (const std::system_error&) {  // no thread is to be had
        return object->in(syntax);
    }
    try {
        while (!isOver(running.result, AskInterval)) {
            if (giveUp()) {
                leave(std::move(running));
                return nullptr;
            }
        }
    } catch (...) {
        leave(std::move(running));
        throw;
    }
    running.thread.join();
    return running.result.get();
}

/// Where there is no room for it any more, it is waited for at the end of this.
void Conversions::leave(Running running) {
    const std::lock_guard lock{mutex_};
    left_.remove_if([](const Running& one) { return isOver(one.result, {}); });
    if (left_.size() < MostLeft)
        left_.push_back(std::move(running));
}

}  // namespace tessaly::tessalyd
