#include "tessalyd/control/EndSignals.h"

#include <sys/signalfd.h>

#include <csignal>

namespace tessaly::tessalyd {

namespace {

int heldBack() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

EndSignals::EndSignals() : descriptor_(heldBack()), notifier_(descriptor_.get(), QSocketNotifier::Read) {
    connect(&notifier_, &QSocketNotifier::activated, this, [this] {
        signalfd_siginfo one{};
        while (::read(descriptor_.get(), &one, sizeof one) == sizeof one)
            emit received();
    });
}

}  // namespace tessaly::tessalyd
