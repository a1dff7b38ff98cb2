#include "tessalyd/control/CommandThread.h"

#include <utility>

namespace tessaly::tessalyd {

CommandThread::CommandThread() : thread_([this] { run(); }) {}

CommandThread::~CommandThread() {
    {
        const std::lock_guard lock{mutex_};
        ending_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void CommandThread::add(Command command) {
    {
        const std::lock_guard lock{mutex_};
        commands_.push_back(std::move(command));
    }
    changed_.notify_all();
}

void CommandThread::waitUntilIdle(std::chrono::milliseconds longest) {
    std::unique_lock lock{mutex_};
    changed_.wait_for(lock, longest, [this] { return commands_.empty(); });
}

void CommandThread::run() {
    std::unique_lock lock{mutex_};
    for (;;) {
        changed_.wait(lock, [this] { return ending_ || !commands_.empty(); });
        if (commands_.empty())
            return;
        const Command& command = commands_.front();  // stays where it is when others are added
        lock.unlock();
        command();
        lock.lock();
        commands_.pop_front();
        changed_.notify_all();
    }
}

}  // namespace tessaly::tessalyd
