#include "tessaly-db/BreakOff.h"

#include <stdexcept>

namespace tessaly::tool {

namespace {

volatile std::sig_atomic_t signalled = 0;

/// What a caller has asked not to be ended by, as `nohup` does, ends nothing here either.
bool isIgnored(const struct sigaction& action) {
    return (static_cast<unsigned>(action.sa_flags) & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

BreakOff::BreakOff() {
    signalled = 0;
    for (std::size_t i = 0; i < Signals.size(); ++i)
        sigaction(Signals[i], nullptr, &before_[i]);
    // SA_RESTART: a driver that waits for its server is not to take it for a fault of the line.
    setAll([](int) { signalled = 1; }, SA_RESTART | static_cast<int>(SA_RESETHAND));
}

BreakOff::~BreakOff() {
    for (std::size_t i = 0; i < Signals.size(); ++i)
        sigaction(Signals[i], &before_[i], nullptr);
}

void BreakOff::setAll(void (*handler)(int), int flags) const {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    for (std::size_t i = 0; i < Signals.size(); ++i)
        if (!isIgnored(before_[i]))
            sigaction(Signals[i], &action, nullptr);
}

bool BreakOff::isWanted() noexcept {
    return signalled != 0;
}

void BreakOff::check() {
    if (isWanted())
        throw std::runtime_error("Broken off: nothing was written");
}

void BreakOff::noMore() const {
    setAll(SIG_IGN, 0);
    check();  // one that came just before
}

}  // namespace tessaly::tool
