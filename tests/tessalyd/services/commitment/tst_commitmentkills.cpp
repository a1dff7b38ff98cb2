#include <QRandomGenerator>
#include <QTest>
#include <map>

#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/services/commitment/Committer.h"
#include "tests/tessalyd/services/commitment/ReportReceiver.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// A server that is killed while it has requests. TESSALY_TEST_KILLS says how often.
class CommitmentKillsTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void noRequestThatWasAcceptedIsLost();
};

void CommitmentKillsTest::noRequestThatWasAcceptedIsLost() {
    constexpr int Requests = 3;  // between two kills
    constexpr int Objects = 20;
    const int kills = killsWanted(8);
    const ReportReceiver receiver;
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port) VALUES ('ct', 'CT', 'TESSALY', "
        "'127.0.0.1', '%1')"_s.arg(receiver.port()));
    const auto launch = [this] { daemon_->launch({u"--first-retry"_s, u"1"_s}); };
    launch();
    CommitmentAsk ask;
    for (int i = 1; i <= Objects; ++i) {
        const std::string instance = "1.2.826.0.1.1.1." + std::to_string(i);
        QCOMPARE(store({.instance = instance, .seed = i}).status, 0);
        ask.references.emplace_back("1.2.840.10008.5.1.4.1.1.2", instance);
    }
    std::map<std::string, int> reported;  // of what was accepted
    int sent = 0;
    for (int kill = 0; kill < kills; ++kill) {
        for (int i = 0; i < Requests; ++i) {
            ask.transactionUid = "1.2.826.0.1.99." + std::to_string(++sent);
            if (Committer{daemon_->port()}.ask(ask) == 0)
                reported[ask.transactionUid] = 0;
        }
        QTest::qSleep(QRandomGenerator::global()->bounded(150));  // into the check, the report, its end
        daemon_->kill();
        // As if the minute had gone by that other servers wait.
        daemon_->database.run(u"UPDATE Job SET Lease=Lease-61 WHERE State=1"_s);
        launch();
    }
    QCOMPARE(reported.size(), static_cast<std::size_t>(kills) * Requests);
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT COUNT(*) FROM Job WHERE State<>2"_s), u"0"_s);
    for (const Report& report : receiver.reports()) {
        QVERIFY2(reported.contains(report.transactionUid), report.transactionUid.c_str());
        ++reported[report.transactionUid];
        QCOMPARE(report.eventType, 1);
        QCOMPARE(report.committed.size(), std::size_t{Objects});
    }
    for (const auto& [uid, times] : reported)
        QVERIFY2(times > 0, uid.c_str());
    EVENTUALLY(QDir(daemon_->database.imageRoot() + u"/.spool"_s).isEmpty());
}

QTEST_GUILESS_MAIN(CommitmentKillsTest)
#include "tst_commitmentkills.moc"
