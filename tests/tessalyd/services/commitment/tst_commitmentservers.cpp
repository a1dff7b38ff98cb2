#include <QTest>
#include <map>

#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"
#include "tests/tessalyd/SharedArchive.h"
#include "tests/tessalyd/services/commitment/Committer.h"
#include "tests/tessalyd/services/commitment/ReportReceiver.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Servers that share a database, and its jobs.
class CommitmentServersTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void threeServersReportEachOnce();
};

void CommitmentServersTest::threeServersReportEachOnce() {
    constexpr int Servers = 3;
    constexpr int Requests = 30;
    const ReportReceiver receiver;
    SharedArchive archive{Servers};
    archive.database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port) VALUES ('ct', 'CT', 'TESSALY', "
        "'127.0.0.1', '%1')"_s.arg(receiver.port()));
    for (int server = 0; server < Servers; ++server)
        archive.launch(server);
    const ObjectSpec object;
    RequestorAssociation sender{archive.target(0, 0)};
    QCOMPARE(sender.store(*makeObject(object)).status, 0);
    CommitmentAsk ask;
    ask.references = {{object.sopClass, object.instance}};
    for (int i = 0; i < Requests; ++i) {
        ask.transactionUid = "1.2.826.0.1.99." + std::to_string(i);
        QCOMPARE(Committer(archive.target(i % Servers, i % 2)).ask(ask), 0);
    }
    EVENTUALLY_COMPARE(archive.database.value(u"SELECT COUNT(*) FROM Job WHERE State=2"_s),
                       QString::number(Requests));
    std::map<std::string, int> reported;
    for (const Report& report : receiver.reports()) {
        QCOMPARE(report.eventType, 1);
        ++reported[report.transactionUid];
    }
    QCOMPARE(reported.size(), std::size_t{Requests});
    for (const auto& [uid, times] : reported)
        QVERIFY2(times == 1, uid.c_str());
}

QTEST_GUILESS_MAIN(CommitmentServersTest)
#include "tst_commitmentservers.moc"
