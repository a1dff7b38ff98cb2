#include <QTest>
#include <csignal>

#include "base/SignalGuard.h"

using tessaly::base::SignalGuard;

namespace {

volatile std::sig_atomic_t first = 0;
volatile std::sig_atomic_t second = 0;

}  // namespace

/// Signals have another action for a while.
class SignalGuardTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        first = 0;
        second = 0;
    }
    void theActionBeforeComesBack();
    void theActionMayChangeMeanwhile();
    void whatIsPassedOverStaysPassedOver();
};

void SignalGuardTest::theActionBeforeComesBack() {
    std::signal(SIGUSR1, [](int) { first = 1; });
    {
        const SignalGuard guard{{SIGUSR1, SIGUSR2}, [](int) { second = 1; }};
        std::raise(SIGUSR2);
        QCOMPARE(int{second}, 1);
        QCOMPARE(int{first}, 0);
    }
    std::raise(SIGUSR1);
    QCOMPARE(int{first}, 1);
    std::signal(SIGUSR1, SIG_DFL);
}

void SignalGuardTest::theActionMayChangeMeanwhile() {
    const SignalGuard guard{{SIGUSR1}, [](int) { first = 1; }};
    guard.set([](int) { second = 1; });
    std::raise(SIGUSR1);
    QCOMPARE(int{first}, 0);
    QCOMPARE(int{second}, 1);
    guard.set(SIG_IGN);
    std::raise(SIGUSR1);
}

void SignalGuardTest::whatIsPassedOverStaysPassedOver() {
    std::signal(SIGUSR1, SIG_IGN);
    {
        const SignalGuard guard{{SIGUSR1}, [](int) { first = 1; }, 0, true};
        std::raise(SIGUSR1);
        QCOMPARE(int{first}, 0);
        const SignalGuard other{{SIGUSR1}, [](int) { second = 1; }};
        std::raise(SIGUSR1);
        QCOMPARE(int{second}, 1);
    }
    std::signal(SIGUSR1, SIG_DFL);
}

QTEST_GUILESS_MAIN(SignalGuardTest)
#include "tst_signalguard.moc"
