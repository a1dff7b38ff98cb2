#include <QElapsedTimer>
#include <QTest>
#include <memory>
#include <vector>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/association/Caller.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Many connections of one address, and others that want in, at the real server.
class CrowdsTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void silentConnectionsDoNotLockOthersOut();
    void rejectedRequestsDoNotLockOthersOut();
    void oneAddressDoesNotLockOthersOut();
    void strangersDoNotLockNodesOut();
    void aFloodOfRejectionsIsAFewLines();

  private:
    using Callers = std::vector<std::unique_ptr<Caller>>;
    static constexpr int Spare = 64;  // threads

    Caller& add(Callers& callers, const QByteArray& address = "127.0.0.2") {
        return *callers.emplace_back(std::make_unique<Caller>(daemon_->port(), address));
    }
    [[nodiscard]] bool echoes(const std::string& title = "TESTER") {
        RequestorAssociation peer{daemon_->port(), title};
        if (!peer.isOpen() || !peer.echo())
            return false;
        peer.release();
        return true;
    }
};

void CrowdsTest::silentConnectionsDoNotLockOthersOut() {
    launch({PortRow{.maxConnections = 4}});
    Callers silent;
    for (int i = 0; i < 2 * Spare; ++i)
        add(silent);
    QVERIFY(echoes());
    QVERIFY(silent.front()->answer() == -1 || silent.front()->hasAnswer());
    QVERIFY2(daemon_->log().contains(u"too many connections"_s), qPrintable(daemon_->log()));
}

void CrowdsTest::rejectedRequestsDoNotLockOthersOut() {
    launch({PortRow{.maxConnections = 1}});
    RequestorAssociation only{daemon_->port()};
    Callers rejected;
    for (int i = 0; i < 2 * Spare; ++i) {
        Caller& one = add(rejected);
        QCOMPARE(one.associate(), int{Caller::Reject});  // and it does not close
    }
    QVERIFY(only.echo());
    only.release();
    QVERIFY(echoes());
}

void CrowdsTest::oneAddressDoesNotLockOthersOut() {
    launch({PortRow{.maxConnections = 4}});
    Callers hog;
    for (int i = 0; i < 4; ++i)
        QCOMPARE(add(hog).associate(), int{Caller::Accept});
    QCOMPARE(add(hog).associate(), int{Caller::Reject});
    RequestorAssociation other{daemon_->port()};
    QVERIFY(other.isOpen());
    QVERIFY(other.echo());
    QCOMPARE(hog.front()->answer(), int{Caller::Abort});
    QVERIFY(!hog.at(1)->hasAnswer());
    EVENTUALLY_COMPARE(daemon_->status().open, 4);
    // No more than half of the places are given to the one from now on.
    hog.at(1).reset();
    EVENTUALLY_COMPARE(daemon_->status().open, 3);
    QCOMPARE(add(hog).associate(), int{Caller::Reject});
    QVERIFY(echoes());
}

void CrowdsTest::strangersDoNotLockNodesOut() {
    const PortRow port{.maxConnections = 4};
    daemon_ = std::make_unique<Daemon>(QList<PortRow>{port});
    daemon_->database.run(u"INSERT INTO DicomNodes (Name, AETitle) VALUES ('ct', 'CT1')"_s);
    daemon_->database.run(u"INSERT INTO PortRemoteNodes VALUES (?, 'ct')"_s, {port.port});
    daemon_->launch();
    Callers strangers;
    for (const char* address : {"127.0.0.2", "127.0.0.3", "127.0.0.4"})
        QCOMPARE(add(strangers, address).associate(), int{Caller::Accept});
    QVERIFY(!echoes());
    QVERIFY(echoes("CT1"));
}

void CrowdsTest::aFloodOfRejectionsIsAFewLines() {
    launch({PortRow{.aeTitle = u"OTHER"_s, .checkCalled = true}});
    QElapsedTimer time;
    time.start();
    constexpr int Many = 500;
    for (int i = 0; i < Many; ++i)
        QCOMPARE(Caller{daemon_->port()}.associate(), int{Caller::Reject});
    QVERIFY(daemon_->terminate());
    const auto count = daemon_->log().count(u"association rejected"_s);
    QVERIFY2(count >= 1 && count <= time.elapsed() / 1000 + 2, qPrintable(daemon_->log()));
    QVERIFY2(daemon_->log().contains(u"such events"_s), qPrintable(daemon_->log()));
}

QTEST_GUILESS_MAIN(CrowdsTest)
#include "tst_crowds.moc"
