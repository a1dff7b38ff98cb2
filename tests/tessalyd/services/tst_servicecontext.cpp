#include <QDir>
#include <QTest>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "tessalyd/services/ServiceContext.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// Who has which right, where objects go, and the sessions that queries read by, without a network.
class ServiceContextTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() { database_ = std::make_unique<ScratchDatabase>(); }
    void cleanup() { database_.reset(); }

    void aNodeWithTheFlagMayQuery_data();
    void aNodeWithTheFlagMayQuery();
    void theFlagPrintIsARightOfItsOwn();
    void aDestinationIsANodeThatStores_data();
    void aDestinationIsANodeThatStores();
    void settingsHoldUntilTheNextConfiguration();
    void sessionsAreBoundedAndHandedOn();
    void statementsArePlannedForTheirOwnValues();
    void whoGivesUpWaitsNoLonger();
    void aSessionThatAnExceptionEndedIsClosed();
    void aClosedPoolReadsTheDataSourceAnew();

  private:
    [[nodiscard]] static Configuration configuration();
    /// How many sessions there are. Of an engine in this process each has the write-ahead log open. (The
    /// database itself SQLite closes only when no other session of the process has a lock on it.)
    [[nodiscard]] qsizetype openSessions() const;
    /// Gives up never.
    [[nodiscard]] static bool never() { return false; }
    [[nodiscard]] static QString firstTable(const QuerySessions::Lease& lease);

    std::unique_ptr<ScratchDatabase> database_;
};

Configuration ServiceContextTest::configuration() {
    db::Connection connection;
    openDatabase(connection);
    return readConfiguration(connection);
}

qsizetype ServiceContextTest::openSessions() const {
    if (ScratchDatabase::isPostgresql())
        return database_
            ->value(
                u"SELECT COUNT(*) FROM pg_stat_activity WHERE datname=current_database() AND "
                "pid<>pg_backend_pid()"_s)
            .toLongLong();
    database_->release();  // the test's own
    qsizetype count = 0;
    const QDir descriptors{u"/proc/self/fd"_s};
    for (const QFileInfo& file :
         descriptors.entryInfoList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot))
        count += file.symLinkTarget() == database_->path() + u"-wal"_s ? 1 : 0;
    return count;
}

QString ServiceContextTest::firstTable(const QuerySessions::Lease& lease) {
    const std::string text = "SELECT BaseUID FROM SiteData";
    db::Query query = lease.statements().take(text);
    QString value;
    if (db::ResultSet rows = query.open(); rows.next())
        value = QString::fromStdString(rows.text("BaseUID"));
    lease.statements().give(text, std::move(query));
    return value;
}

void ServiceContextTest::aNodeWithTheFlagMayQuery_data() {
    QTest::addColumn<QString>("caller");
    QTest::addColumn<bool>("may");
    QTest::newRow("with the flag") << u"WS1"_s << true;
    QTest::newRow("blanks in the table") << u"WS2"_s << true;
    QTest::newRow("a flag that is not 1") << u"WS3"_s << true;
    QTest::newRow("without the flag") << u"CT1"_s << false;
    QTest::newRow("one of two nodes with the title") << u"TWICE"_s << true;
    QTest::newRow("unknown") << u"OTHER"_s << false;
    QTest::newRow("with regard to case") << u"ws1"_s << false;
    QTest::newRow("the node's name") << u"work"_s << false;
    QTest::newRow("no title") << QString{} << false;
}

void ServiceContextTest::aNodeWithTheFlagMayQuery() {
    QFETCH(QString, caller);
    QFETCH(bool, may);
    database_->run(
        u"INSERT INTO DicomNodes (Name, AETitle, Store, Query) VALUES ('work', 'WS1', 0, 1), "
        "('blank', ' WS2 ', 0, 1), ('flag', 'WS3', 0, -1), ('ct', 'CT1', 1, 0), "
        "('a', 'TWICE', 1, 0), ('b', 'TWICE', 0, 1), ('none', NULL, 1, 1)"_s);
    const RemoteNodes nodes{configuration().nodes};
    QCOMPARE(nodes.has(Right::Query, caller.toStdString()), may);
    QVERIFY(nodes.has(Right::None, caller.toStdString()));
    QVERIFY(!nodes.has(Right::Print, caller.toStdString()));
}

void ServiceContextTest::theFlagPrintIsARightOfItsOwn() {
    database_->run(u"INSERT INTO DicomNodes (Name, AETitle, Query, Print) VALUES ('ct', 'CT1', 0, 1)"_s);
    const RemoteNodes nodes{configuration().nodes};
    QVERIFY(nodes.has(Right::Print, "CT1"));
    QVERIFY(!nodes.has(Right::Query, "CT1"));
    QVERIFY(!nodes.has(Right::Print, "CT2"));
}

void ServiceContextTest::aDestinationIsANodeThatStores_data() {
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("called");
    QTest::addColumn<QString>("wanted");  // node, host, port, calling title; empty: none
    QTest::newRow("with the flag") << u"ST1"_s << u"TESSALY"_s << u"store st.example 104 LOCAL"_s;
    QTest::newRow("without the flag") << u"WS1"_s << u"TESSALY"_s << QString{};
    QTest::newRow("unknown") << u"OTHER"_s << u"TESSALY"_s << QString{};
    QTest::newRow("with regard to case") << u"st1"_s << u"TESSALY"_s << QString{};
    QTest::newRow("no title") << QString{} << u"TESSALY"_s << QString{};
    QTest::newRow("several: the first by name") << u"MANY"_s << u"OTHER"_s << u"ma a.example 1 A"_s;
    QTest::newRow("several: the called title's") << u"MANY"_s << u"C"_s << u"mc c.example 3 C"_s;
    QTest::newRow("several: not one without the flag") << u"MANY"_s << u"B"_s << u"ma a.example 1 A"_s;
    QTest::newRow("without a local title") << u"BARE"_s << u"TESSALY"_s << u"bare b.example 5 TESSALY"_s;
}

void ServiceContextTest::aDestinationIsANodeThatStores() {
    QFETCH(QString, title);
    QFETCH(QString, called);
    QFETCH(QString, wanted);
    database_->run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query) VALUES "
        "('store', 'ST1', 'LOCAL', 'st.example', '104', 1, 0), "
        "('work', 'WS1', 'LOCAL', 'ws.example', '104', 0, 1), "
        "('mc', 'MANY', 'C', 'c.example', '3', 1, 0), ('mb', 'MANY', 'B', 'b.example', '2', 0, 0), "
        "('ma', 'MANY', 'A', 'a.example', '1', 1, 0), "
        "('bare', 'BARE', NULL, 'b.example', '5', 1, 0), ('none', NULL, 'L', 'n.example', '6', 1, 1)"_s);
    const auto found =
        RemoteNodes{configuration().nodes}.destination(title.toStdString(), called.toStdString());
    const QString text =
        found ? QString::fromStdString(found->node + ' ' + found->peer.host + ' ' +
                                       std::to_string(found->peer.port) + ' ' + found->peer.callingAeTitle)
              : QString{};
    QCOMPARE(text, wanted);
    if (found)
        QCOMPARE(QString::fromStdString(found->peer.calledAeTitle), title);
}

void ServiceContextTest::settingsHoldUntilTheNextConfiguration() {
    decoder::Pool decoders{{}};
    ServiceContext shared{decoders};
    database_->run(u"UPDATE DicomServer SET QueryTimeout=7"_s);
    shared.configure(configuration());
    const auto before = shared.settings();
    QVERIFY(!before->nodes->has(Right::Query, "WS1"));
    QCOMPARE(before->queryTimeout, std::chrono::seconds{7});
    database_->run(u"INSERT INTO DicomNodes (Name, AETitle, Query) VALUES ('work', 'WS1', 1)"_s);
    shared.configure(configuration());
    QVERIFY(shared.settings()->nodes->has(Right::Query, "WS1"));
    QVERIFY(!before->nodes->has(Right::Query, "WS1"));
}

void ServiceContextTest::sessionsAreBoundedAndHandedOn() {
    QuerySessions sessions;
    std::vector<QuerySessions::Lease> leases;
    for (std::size_t i = 0; i < QuerySessions::Most; ++i)
        leases.push_back(*sessions.take(never));
    EVENTUALLY_COMPARE(openSessions(), static_cast<qsizetype>(QuerySessions::Most));
    std::atomic<int> asked = 0;
    std::atomic<bool> taken = false;
    std::jthread waiting{[&] {
        const auto lease = sessions.take([&] {
            ++asked;
            return false;
        });
        taken = lease && !firstTable(*lease).isNull();
    }};
    EVENTUALLY(asked > 0);
    QVERIFY(!taken);
    leases.pop_back();
    EVENTUALLY(taken);
    EVENTUALLY_COMPARE(openSessions(), static_cast<qsizetype>(QuerySessions::Most));
}

void ServiceContextTest::statementsArePlannedForTheirOwnValues() {
    QuerySessions sessions;
    const auto lease = sessions.take(never);
    QVERIFY(!firstTable(*lease).isNull());  // the words are no obstacle where they mean nothing
    if (!ScratchDatabase::isPostgresql())
        return;
    db::Query query = lease->statements().take("SELECT current_setting('plan_cache_mode') AS mode");
    auto rows = query.open();
    QVERIFY(rows.next());
    QCOMPARE(rows.text("mode"), std::string{"force_custom_plan"});
}

void ServiceContextTest::whoGivesUpWaitsNoLonger() {
    QuerySessions sessions;
    std::vector<QuerySessions::Lease> leases;
    for (std::size_t i = 0; i < QuerySessions::Most; ++i)
        leases.push_back(*sessions.take(never));
    QVERIFY(!sessions.take([] { return true; }));
    QVERIFY_THROWS_EXCEPTION(std::runtime_error,
                             (void)sessions.take([]() -> bool { throw std::runtime_error{"gone"}; }));
    leases.clear();
    QVERIFY(sessions.take(never));
}

void ServiceContextTest::aSessionThatAnExceptionEndedIsClosed() {
    QuerySessions sessions;
    const auto use = [&sessions](bool fail) {
        const auto lease = sessions.take(never);
        (void)firstTable(*lease);
        if (fail)
            throw std::runtime_error{"broken"};
    };
    use(false);
    EVENTUALLY_COMPARE(openSessions(), 1);
    QVERIFY_THROWS_EXCEPTION(std::runtime_error, use(true));
    EVENTUALLY_COMPARE(openSessions(), 0);
    use(false);
    EVENTUALLY_COMPARE(openSessions(), 1);
}

void ServiceContextTest::aClosedPoolReadsTheDataSourceAnew() {
    QuerySessions sessions;
    {
        const auto held = sessions.take(never);
        (void)sessions.take(never);
        EVENTUALLY_COMPARE(openSessions(), 2);
        sessions.close();
        EVENTUALLY_COMPARE(openSessions(), 1);
        QVERIFY(!firstTable(*held).isNull());
    }
    EVENTUALLY_COMPARE(openSessions(), 0);
    database_->setDataSource(database_->dataSource({u"Database=/nonexistent/DicomDB.mdb"_s}));
    QVERIFY_THROWS_EXCEPTION(db::Error, (void)sessions.take(never));
    database_->setDataSource(database_->dataSource({}));
    QVERIFY(sessions.take(never));
}

QTEST_GUILESS_MAIN(ServiceContextTest)
#include "tst_servicecontext.moc"
