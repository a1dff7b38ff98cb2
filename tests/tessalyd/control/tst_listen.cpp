#include <QTest>

#include "tests/tessalyd/DaemonTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// The addresses that the server listens on.
class ListenTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void allAddressesUnlessToldOtherwise();
    void thoseOfTheCommandLineAlone();
    void oneThatIsNotOfTheMachineDoesNotKeepTheOthers();
    void whatIsNoAddressIsRefused();

  private:
    [[nodiscard]] bool echoes(const QString& address) const {
        return run(u"echoscu"_s, {u"-aec"_s, u"TESSALY"_s, address, daemon_->port()}).exitCode == 0;
    }
};

void ListenTest::allAddressesUnlessToldOtherwise() {
    launch();
    for (const QString& address : {u"127.0.0.1"_s, u"127.0.0.2"_s, u"127.0.0.3"_s})
        QVERIFY2(echoes(address), qPrintable(address));
}

void ListenTest::thoseOfTheCommandLineAlone() {
    launch({PortRow{}}, {u"--listen"_s, u"127.0.0.2"_s, u"--listen"_s, u"127.0.0.3"_s});
    QVERIFY(!echoes(u"127.0.0.1"_s));
    QVERIFY(echoes(u"127.0.0.2"_s));
    QVERIFY(echoes(u"127.0.0.3"_s));
    QCOMPARE(daemon_->status(), (Daemon::Status{0, 0, 1}));
    QVERIFY(daemon_->succeeds(&OrgTessalyServer1Interface::Restart));
    QVERIFY(!echoes(u"127.0.0.1"_s));
    QVERIFY(echoes(u"127.0.0.3"_s));
}

void ListenTest::oneThatIsNotOfTheMachineDoesNotKeepTheOthers() {
    // 192.0.2.0/24 is for examples, and nobody's.
    launch({PortRow{}}, {u"--listen"_s, u"192.0.2.1"_s, u"--listen"_s, u"127.0.0.2"_s});
    QVERIFY(echoes(u"127.0.0.2"_s));
    QCOMPARE(daemon_->status(), (Daemon::Status{0, 0, 0}));
    QVERIFY(daemon_->log().contains(u"port %1 of 192.0.2.1: cannot listen: bind"_s.arg(daemon_->port())));
}

void ListenTest::whatIsNoAddressIsRefused() {
    for (const QString& address : {u"localhost"_s, u"127.0.0"_s, u"::1"_s, u"127.0.0.256"_s}) {
        const Outcome outcome =
            tessaly::test::run(QStringLiteral(TESSALY_BINARY_DIR "/tessalyd"), {u"--listen"_s, address});
        QVERIFY2(outcome.exitCode > 0, qPrintable(address));
        QVERIFY2(outcome.output.contains(u"--listen"_s), qPrintable(outcome.output));
    }
}

QTEST_GUILESS_MAIN(ListenTest)
#include "tst_listen.moc"
