#include <QTcpServer>
#include <QTest>

#include "dicom/net/Verifier.h"
#include "tests/tessalyd/DaemonTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// The addresses that the server listens on.
class ListenTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void allAddressesUnlessToldOtherwise();
    void thoseOfTheCommandLineAlone();
    void ipv6IsListenedOnToo();
    void anIpv6AddressOfTheCommandLineAlone();
    void oneThatIsNotOfTheMachineDoesNotKeepTheOthers();
    void whatIsNoAddressIsRefused();

  private:
    [[nodiscard]] static bool hasIpv6() { return QTcpServer{}.listen(QHostAddress::LocalHostIPv6); }
    /// By the console's own verification: the tools of other packages have no IPv6.
    [[nodiscard]] bool verifies(const QString& address) const {
        const auto result = tessaly::dicom::Verifier{}.verify({.host = address.toStdString(),
                                                               .port = daemon_->port().toStdString(),
                                                               .callingAeTitle = "TESTER",
                                                               .calledAeTitle = "TESSALY"});
        return result.outcome == tessaly::dicom::VerificationResult::Outcome::Success;
    }
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

void ListenTest::ipv6IsListenedOnToo() {
    launch();
    QCOMPARE(verifies(u"::1"_s), hasIpv6());
    QCOMPARE(verifies(u"[::1]"_s), hasIpv6());
    QVERIFY(verifies(u"127.0.0.1"_s));                       // also on a machine that has no IPv6
    QCOMPARE(daemon_->status(), (Daemon::Status{0, 0, 1}));  // one port, by whatever address
}

void ListenTest::anIpv6AddressOfTheCommandLineAlone() {
    launch({PortRow{}}, {u"--listen"_s, u"::1"_s, u"--listen"_s, u"127.0.0.2"_s});
    QCOMPARE(verifies(u"::1"_s), hasIpv6());
    QVERIFY(!verifies(u"127.0.0.1"_s));
    const QString line = hasIpv6() ? u"port %1 of ::1: listening"_s : u"port %1 of ::1: cannot listen"_s;
    QVERIFY(daemon_->log().contains(line.arg(daemon_->port())));
}

void ListenTest::oneThatIsNotOfTheMachineDoesNotKeepTheOthers() {
    // 192.0.2.0/24 is for examples, and nobody's.
    launch({PortRow{}}, {u"--listen"_s, u"192.0.2.1"_s, u"--listen"_s, u"127.0.0.2"_s});
    QVERIFY(echoes(u"127.0.0.2"_s));
    QCOMPARE(daemon_->status(), (Daemon::Status{0, 0, 0}));
    QVERIFY(daemon_->log().contains(u"port %1 of 192.0.2.1: cannot listen: bind"_s.arg(daemon_->port())));
}

void ListenTest::whatIsNoAddressIsRefused() {
    for (const QString& address : {u"localhost"_s, u"127.0.0"_s, u"::g"_s, u"127.0.0.256"_s}) {
        const Outcome outcome =
            tessaly::test::run(QStringLiteral(TESSALY_BINARY_DIR "/tessalyd"), {u"--listen"_s, address});
        QVERIFY2(outcome.exitCode > 0, qPrintable(address));
        QVERIFY2(outcome.output.contains(u"--listen"_s), qPrintable(outcome.output));
    }
}

QTEST_GUILESS_MAIN(ListenTest)
#include "tst_listen.moc"
