#include "tessalyd/association/PeerLog.h"

#include <algorithm>

#include "tessalyd/Log.h"

namespace tessaly::tessalyd {

namespace {

struct Rule {
    OFLogger::LogLevel level;
    int atOnce;
};

constexpr Rule ruleOf(PeerLog::Event event) {
    constexpr int Few = 10;
    constexpr int Many = 100;
    switch (event) {
        case PeerLog::Event::Connection:
        case PeerLog::Event::Rejection:
            return {OFLogger::INFO_LOG_LEVEL, 1};
        case PeerLog::Event::Refusal:
            return {OFLogger::INFO_LOG_LEVEL, Few};
        case PeerLog::Event::Association:
            return {OFLogger::INFO_LOG_LEVEL, Many};
        case PeerLog::Event::Fault:
            return {OFLogger::WARN_LOG_LEVEL, Many};
        case PeerLog::Event::Failure:
            break;
    }
    return {OFLogger::ERROR_LOG_LEVEL, Many};
}

void write(OFLogger::LogLevel level, const std::string& line) {
    if (level == OFLogger::ERROR_LOG_LEVEL)
        OFLOG_ERROR(serverLog(), line.c_str());
    else if (level == OFLogger::WARN_LOG_LEVEL)
        OFLOG_WARN(serverLog(), line.c_str());
    else
        OFLOG_INFO(serverLog(), line.c_str());
}

}  // namespace

PeerLog::PeerLog(std::chrono::milliseconds interval) : interval_(interval) {
    for (std::size_t i = 0; i < Kinds; ++i)
        kinds_.at(i) = {.allowed = static_cast<double>(ruleOf(static_cast<Event>(i)).atOnce),
                        .counted = Clock::now()};
    thread_ = std::jthread{[this](const std::stop_token& stop) { run(stop); }};
}

PeerLog::~PeerLog() {
    thread_.request_stop();
    thread_.join();
    writeDue(Clock::time_point::max());
}

void PeerLog::add(Event event, const std::string& line) {
    const Rule rule = ruleOf(event);
    const auto now = Clock::now();
    const std::lock_guard lock{mutex_};
    Kind& kind = kinds_.at(static_cast<std::size_t>(event));
    const std::chrono::duration<double> since = now - kind.counted;
    kind.counted = now;
    kind.allowed = std::min(kind.allowed + since / interval_, static_cast<double>(rule.atOnce));
    if (kind.waiting == 0 && kind.allowed >= 1) {
        kind.allowed -= 1;
        kind.due = now + interval_;
        write(rule.level, line);
        return;
    }
    kind.latest = line;
    if (kind.waiting++ > 0)
        return;
    kind.due = std::max(kind.due, now);
    waits_.notify_one();
}

void PeerLog::run(const std::stop_token& stop) {
    std::unique_lock lock{mutex_};
    while (!stop.stop_requested()) {
        const auto anyWaits = [this] {
            return std::any_of(kinds_.begin(), kinds_.end(),
                               [](const Kind& kind) { return kind.waiting > 0; });
        };
        if (!waits_.wait(lock, stop, anyWaits))
            return;
        const auto next = writeDue(Clock::now());
        if (next != Clock::time_point::max())
            waits_.wait_until(lock, stop, next, [] { return false; });
    }
}

PeerLog::Clock::time_point PeerLog::writeDue(Clock::time_point now) {
    auto next = Clock::time_point::max();
    for (std::size_t i = 0; i < Kinds; ++i) {
        Kind& kind = kinds_.at(i);
        if (kind.waiting == 0)
            continue;
        if (kind.due <= now) {
            writeWaiting(i, kind);
            kind.due = Clock::now() + interval_;
        } else {
            next = std::min(next, kind.due);
        }
    }
    return next;
}

/// The line takes what a second without an event would have allowed.
void PeerLog::writeWaiting(std::size_t number, Kind& kind) {
    const auto level = ruleOf(static_cast<Event>(number)).level;
    write(level, kind.waiting == 1
                     ? kind.latest
                     : kind.latest + " (the last of " + std::to_string(kind.waiting) + " such events)");
    kind.waiting = 0;
    kind.allowed = std::max(kind.allowed - 1, 0.0);
}

}  // namespace tessaly::tessalyd
