#include "tessaly-db/BreakOff.h"

#include <array>
#include <csignal>
#include <stdexcept>

namespace tessaly::tool {

namespace {

constexpr std::array Signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

volatile std::sig_atomic_t signalled = 0;

void setAll(void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    for (const int signal : Signals)
        sigaction(signal, &action, nullptr);
}

}  // namespace

BreakOff::BreakOff() {
    signalled = 0;
    // SA_RESTART: a driver that waits for its server is not to take it for a fault of the line.
    setAll([](int) { signalled = 1; }, SA_RESTART | static_cast<int>(SA_RESETHAND));
}

BreakOff::~BreakOff() {
    setAll(SIG_DFL, 0);
}

bool BreakOff::isWanted() noexcept {
    return signalled != 0;
}

void BreakOff::check() {
    if (isWanted())
        throw std::runtime_error("Broken off: nothing was written");
}

void BreakOff::noMore() {
    setAll(SIG_IGN, 0);
    check();  // one that came just before
}

}  // namespace tessaly::tool
