#include "tessaly-db/InterruptGuard.h"

#include <stdexcept>

namespace tessaly::tool {

namespace {

volatile std::sig_atomic_t signalled = 0;

/// SA_RESTART: a driver that waits for its server is not to take it for a fault of the line. What came for an
/// earlier one is forgotten before the first signal can come for this.
int flagsOfNew() {
    signalled = 0;
    return SA_RESTART | static_cast<int>(SA_RESETHAND);
}

}  // namespace

InterruptGuard::InterruptGuard()
    : signals_(
          {SIGINT, SIGTERM, SIGHUP, SIGQUIT}, [](int) { signalled = 1; }, flagsOfNew(), true) {}

bool InterruptGuard::isWanted() noexcept {
    return signalled != 0;
}

void InterruptGuard::check() {
    if (isWanted())
        throw std::runtime_error(Message);
}

void InterruptGuard::noMore() const {
    signals_.set(SIG_IGN);
    check();  // one that came just before
}

}  // namespace tessaly::tool
