#include <QScopeGuard>
#include <QTest>
#include <future>

#include "tests/support/ScratchCluster.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/services/commitment/Committer.h"
#include "tests/tessalyd/services/commitment/ReportReceiver.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// What becomes of a request when the engine ends the session that keeps it.
class CommitmentEngineTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void aRequestThatIsKeptAlreadyKeepsItsList();

  private:
    static void setStandby(const QString& name) {
        const ScratchCluster& cluster = ScratchCluster::instance();
        cluster.administer(u"ALTER SYSTEM SET synchronous_standby_names = '%1'"_s.arg(name));
        cluster.administer(u"SELECT pg_reload_conf()"_s);
    }
};

/// An engine that waits for a standby has the request on its own disk when the session ends, and has not said
/// so yet. The server asks again, and finds the job that it has made itself.
void CommitmentEngineTest::aRequestThatIsKeptAlreadyKeepsItsList() {
    ScratchCluster& cluster = ScratchCluster::instance();
    cluster.administer(u"ALTER SYSTEM SET wal_level = 'replica'"_s);
    cluster.administer(u"ALTER SYSTEM SET max_wal_senders = 1"_s);
    cluster.restart();
    const ReportReceiver receiver;
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port) VALUES ('ct', 'CT', 'TESSALY', "
        "'127.0.0.1', '%1')"_s.arg(receiver.port()));
    daemon_->launch({u"--first-retry"_s, u"1"_s});
    const ObjectSpec object;
    QCOMPARE(store(object).status, 0);

    setStandby(u"nobody"_s);
    const auto reset = qScopeGuard([] { setStandby({}); });
    CommitmentAsk ask;
    ask.references = {{object.sopClass, object.instance}};
    auto status =
        std::async(std::launch::async, [&ask, port = daemon_->port()] { return Committer{port}.ask(ask); });
    const auto waiting = u"FROM pg_stat_activity WHERE wait_event = 'SyncRep'"_s;
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT COUNT(*) "_s + waiting), u"1"_s);
    daemon_->database.run(u"SELECT pg_terminate_backend(pid) "_s + waiting);
    QCOMPARE(status.get(), 0);
    setStandby({});

    EVENTUALLY(receiver.reports().size() == 1);
    QCOMPARE(receiver.reports().front().committed, std::vector<std::string>{object.instance});
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT State FROM Job"_s), u"2"_s);
}

QTEST_GUILESS_MAIN(CommitmentEngineTest)
#include "tst_commitmentengine.moc"
