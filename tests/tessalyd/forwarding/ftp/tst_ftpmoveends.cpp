#include <QSet>
#include <atomic>
#include <latch>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/forwarding/ftp/DeliveryTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// What ends a C-MOVE to an FTP node, and what does not.
class FtpMoveEndsTest : public DeliveryTest {
    Q_OBJECT

  private:
    using Reply = std::optional<std::string>;

  private Q_SLOTS:
    void aRequestorThatVanishesDoesNotEndIt();
    void aCancelEndsIt();
    void aCancelBehindTheEndIsNone();
    void terminateInterruptsIt();
    void aKilledServerGoesOn();
};

void FtpMoveEndsTest::aRequestorThatVanishesDoesNotEndIt() {
    ScriptedFtp server;
    std::latch begun{1};
    std::latch over{1};
    std::atomic<int> stores = 0;
    server.setScript([&](const std::string& verb, const std::string&) {
        if (verb == "STOR" && ++stores == 1) {
            begun.count_down();
            over.wait();
        }
        return Reply{};
    });
    launchFor(nodeOf(server));
    const QStringList uids = storeStudy(3);
    {
        Retriever viewer{daemon_->port()};
        askForDelivery(viewer);
        begun.wait();
    }
    EVENTUALLY(!daemon_->isBusy());
    over.count_down();
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    QVERIFY(filesOf(server) == deliveryOf(uids));
}

void FtpMoveEndsTest::aCancelEndsIt() {
    ScriptedFtp server;
    std::latch begun{1};
    std::atomic<int> stores = 0;
    server.setAfterStore([&](const std::string&, const std::string&) {
        if (++stores < 3)
            return Reply{};
        begun.count_down();
        return Reply{ScriptedFtp::Silence};
    });
    launchFor(nodeOf(server));
    storeStudy(6);
    Retriever viewer{daemon_->port()};
    const DIC_US id = askForDelivery(viewer);
    begun.wait();
    viewer.cancel(Retriever::MoveStudyRoot, id);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xfe00);
    QCOMPARE(moved.counters.remaining + moved.counters.completed, 6);
    QVERIFY(moved.counters.remaining > 0);
    QCOMPARE(jobStates(), QStringList{});
    EVENTUALLY(daemon_->log().contains(u"ended: it was dropped"_s));
    EVENTUALLY_COMPARE(spooled(), QStringList{});
    QVERIFY(viewer.echo());
}

void FtpMoveEndsTest::aCancelBehindTheEndIsNone() {
    const ScriptedFtp server;
    launchFor(nodeOf(server));
    storeStudy(2);
    Retriever viewer{daemon_->port()};
    const DIC_US id = askForDelivery(viewer);
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    viewer.cancel(Retriever::MoveStudyRoot, id);
    QCOMPARE(viewer.collect().status, 0);
    QVERIFY(viewer.echo());
}

void FtpMoveEndsTest::terminateInterruptsIt() {
    ScriptedFtp server;
    std::atomic<bool> isSilent = true;
    std::atomic<int> silences = 0;
    server.setScript([&](const std::string& verb, const std::string&) {
        if (verb != "STOR" || !isSilent)
            return Reply{};
        ++silences;
        return Reply{ScriptedFtp::Silence};
    });
    launchFor(nodeOf(server), QuickRetry + QStringList{u"--grace"_s, u"0"_s});
    const QStringList uids = storeStudy(3);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    EVENTUALLY(silences > 0);
    QVERIFY(daemon_->terminate());
    QCOMPARE(jobStates(), QStringList{Waiting});
    QCOMPARE(daemon_->database.value(u"SELECT Attempts FROM Job"_s), u"0"_s);  // it was no fault
    isSilent = false;
    daemon_->launch(QuickRetry);
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    QVERIFY(filesOf(server) == deliveryOf(uids));
}

void FtpMoveEndsTest::aKilledServerGoesOn() {
    ScriptedFtp server;
    std::atomic<int> stores = 0;
    server.setAfterStore([&](const std::string&, const std::string&) {
        return ++stores == 2 ? Reply{ScriptedFtp::Silence} : std::nullopt;
    });
    launchFor(nodeOf(server));
    const QStringList uids = storeStudy(4);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    EVENTUALLY(stores == 2);
    daemon_->kill();
    QVERIFY(!server.names().filter(u".part"_s).isEmpty());
    daemon_->launch(QuickRetry);
    QCOMPARE(jobStates(), QStringList{Running});  // whoever had it may be alive
    endLeases();
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    QVERIFY(filesOf(server) == deliveryOf(uids));
}

QTEST_GUILESS_MAIN(FtpMoveEndsTest)
#include "tst_ftpmoveends.moc"
