#include <QDir>
#include <QScopeGuard>
#include <QTcpServer>
#include <QTest>

#include "tests/support/ScratchCluster.h"
#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using test::ScratchCluster;

namespace {

/// What a database server may refuse: the tool says so in one line, the driver's own, and has made nothing.
class TestBadServer : public ToolTest {
    Q_OBJECT
  private slots:
    void aServerThatCannotBeUsed_data();
    void aServerThatCannotBeUsed();
    void aServerThatSaysNothing_data();
    void aServerThatSaysNothing();
    void whoMayNotMakeTables();
    void whoMayNotRead();
    void aTableThatSomebodyHolds();
    void aTableThatIsMissing();
    void aFullDiskKeepsNothingOfACopy();
    void aFullDiskKeepsATableThatIsCompacted();
    void noCommandLeavesALog();

  private:
    void use(const QStringList& changes) const { scratch().setDataSource(scratch().dataSource(changes)); }
    static QStringList locked(const QString& password) {
        return {u"Username="_s + ScratchCluster::Locked, u"Password="_s + password};
    }
    /// The command ends with 1 and one line with the reason.
    static void refuses(const QStringList& command, const QString& reason) {
        const auto refused = run(command);
        QCOMPARE(refused.status, 1);
        const bool isCheck = command.first() == u"check"_s;
        const QString said = isCheck ? refused.out : refused.err;
        QCOMPARE(isCheck ? refused.err : refused.out, QString());
        QVERIFY2(isOneLine(said) && said.contains(reason), qPrintable(command.join(u' ') + u": "_s + said));
    }
};

constexpr long TwoMegabytes = 2L << 20;

}  // namespace

void TestBadServer::aServerThatCannotBeUsed_data() {
    QTest::addColumn<QStringList>("changes");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* name, const QStringList& changes, const QString& reason) {
        QTest::newRow(name) << changes << reason;
    };
    row("no cluster", {u"Servername=/nowhere"_s}, u"No such file or directory"_s);
    row("no listener", {u"Servername=127.0.0.1"_s, u"Port=1"_s}, u"Connection refused"_s);
    row("a wrong password", locked(u"wrong"_s), u"password authentication failed for user \"locked\""_s);
    row("no password", {u"Username="_s + ScratchCluster::Locked}, u"no password supplied"_s);
    row("Latin 1", {u"Database=latin1"_s}, u"The database has the encoding LATIN1; it has to be UTF8"_s);
    row("no encoding", {u"Database=ascii"_s},
        u"The database has the encoding SQL_ASCII; it has to be UTF8"_s);
    row("not to be connected to", {u"Database=closed"_s}, u"permission denied for database \"closed\""_s);
}

void TestBadServer::aServerThatCannotBeUsed() {
    QFETCH(QStringList, changes);
    QFETCH(QString, reason);
    const auto& cluster = ScratchCluster::instance();
    cluster.administer(
        u"CREATE DATABASE ascii OWNER %1 ENCODING SQL_ASCII LOCALE 'C' TEMPLATE template0"_s.arg(
            ScratchCluster::Owner));
    cluster.administer(u"CREATE DATABASE closed"_s);
    cluster.administer(u"REVOKE CONNECT ON DATABASE closed FROM PUBLIC"_s);
    const auto source = fileSource(u"Source"_s);
    source->release();
    use(changes);
    addDataSource(u"Source"_s, FileSource::lines(source->file()));
    for (const QStringList& command :
         {QStringList{u"check"_s}, QStringList{u"create"_s}, QStringList{u"add-admin"_s, u"x"_s},
          QStringList{u"set-password"_s, u"x"_s}, QStringList{u"upgrade"_s}, QStringList{u"compact"_s},
          QStringList{u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, u"DicomFDB"_s},
          QStringList{u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, u"DicomFDB"_s, u"--dry-run"_s}})
        refuses(command, reason);
    for (const char* name : {"ascii", "closed"})
        cluster.administer(u"DROP DATABASE "_s + QLatin1StringView{name});
}

void TestBadServer::aServerThatSaysNothing_data() {
    QTest::addColumn<QByteArray>("ofEnvironment");
    QTest::addColumn<QStringList>("more");
    QTest::newRow("by the environment's limit") << QByteArray{"2"} << QStringList{};
    QTest::newRow("by the data source's") << QByteArray{"60"} << QStringList{u"pqopt=connect_timeout=2"_s};
}

void TestBadServer::aServerThatSaysNothing() {
    QFETCH(QByteArray, ofEnvironment);
    QFETCH(QStringList, more);
    constexpr const char* Limit = "PGCONNECT_TIMEOUT";
    const QByteArray ours = qgetenv(Limit);
    QCOMPARE(ours, QByteArray{"10"});  // of each program that can connect, this one too
    qputenv(Limit, ofEnvironment);
    const auto restore = qScopeGuard([&] { qputenv(Limit, ours); });
    QTcpServer silent;  // the kernel lets callers in
    QVERIFY(silent.listen(QHostAddress::LocalHost));
    use(QStringList{u"Servername=127.0.0.1"_s, u"Port=%1"_s.arg(silent.serverPort())} + more);
    refuses({u"check"_s}, u"timeout expired"_s);
}

void TestBadServer::whoMayNotMakeTables() {
    const auto source = fileSource(u"Source"_s);
    source->release();
    use(locked(u"right"_s));
    addDataSource(u"Source"_s, FileSource::lines(source->file()));
    const QString reason = u"permission denied for schema public"_s;
    refuses({u"create"_s}, reason);
    refuses({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource}, reason);
    refuses({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource, u"--dry-run"_s}, reason);
    QVERIFY(!hasTables());
}

void TestBadServer::whoMayNotRead() {
    create();
    use(locked(u"right"_s));
    refuses({u"add-admin"_s, u"x"_s}, u"permission denied for table users"_s);
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.status, 1);
    QVERIFY2((checked.out + checked.err).contains(u"permission denied for table"_s),
             qPrintable(checked.out + checked.err));
}

void TestBadServer::aTableThatSomebodyHolds() {
    create();
    use({u"ConnSettings=SET lock_timeout TO 100"_s});
    const QString stored = storedPassword(u"admin"_s);
    scratch().run(u"BEGIN"_s);
    scratch().run(u"LOCK TABLE Users IN EXCLUSIVE MODE"_s);
    refuses({u"set-password"_s, u"admin"_s}, u"canceling statement due to lock timeout"_s);
    refuses({u"add-admin"_s, u"x"_s}, u"canceling statement due to lock timeout"_s);
    scratch().run(u"COMMIT"_s);
    QCOMPARE(column("SELECT UserPwd FROM Users"), QStringList{stored});
    QCOMPARE(run({u"add-admin"_s, u"x"_s}).status, 0);
}

void TestBadServer::aTableThatIsMissing() {
    create();
    change(u"DROP TABLE Users"_s);
    refuses({u"add-admin"_s, u"x"_s}, u"relation \"users\" does not exist"_s);
    refuses({u"check"_s}, u"The table Users is missing: run tessaly-db upgrade"_s);
    QCOMPARE(run({u"compact"_s}).status, 0);  // of those that are there
}

void TestBadServer::aFullDiskKeepsNothingOfACopy() {
    const auto source = fileSource(u"Source"_s);
    source->run(
        u"WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<40000) INSERT INTO Image "
        "(SOPInstanceUID, SeriesInstanceUID, ImageFile) SELECT '1.2.3.4.5.6.7.8.9.'||i, '1.3', 'file'||i FROM n"_s);
    source->release();
    ScratchCluster::instance().limitFiles(TwoMegabytes);
    for (const QStringList& dry : {QStringList{}, QStringList{u"--dry-run"_s}})
        refuses(QStringList{u"copy"_s, u"--quiet"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource} + dry,
                u"could not extend file"_s);
    ScratchCluster::instance().limitFiles({});
    QVERIFY(!hasTables());
    QCOMPARE(run({u"copy"_s, u"--quiet"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource}).status, 0);
    QCOMPARE(column("SELECT count(*) FROM Image"), QStringList{u"40001"_s});
}

void TestBadServer::aFullDiskKeepsATableThatIsCompacted() {
    create();
    change(
        u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) "
        "SELECT '1.2.3.4.5.6.7.8.9.'||i, '1.3', 'file'||i FROM generate_series(1, 60000) AS i"_s);
    change(u"DELETE FROM Image WHERE SOPInstanceUID LIKE '%5' COLLATE \"C\""_s);
    const auto before = column("SELECT pg_relation_filenode('image')");
    ScratchCluster::instance().limitFiles(TwoMegabytes);
    refuses({u"compact"_s}, u"File too large"_s);
    ScratchCluster::instance().limitFiles({});
    QCOMPARE(column("SELECT pg_relation_filenode('image')"), before);
    QCOMPARE(column("SELECT count(*) FROM Image"), QStringList{u"54000"_s});
    QCOMPARE(run({u"compact"_s}).status, 0);
    QCOMPARE(column("SELECT count(*) FROM Image"), QStringList{u"54000"_s});
}

void TestBadServer::noCommandLeavesALog() {
    const auto logs = [] {
        return QDir{u"/tmp"_s}.entryList({u"psqlodbc_tessaly-db_*"_s, u"mylog_tessaly-db_*"_s}, QDir::Files);
    };
    const QStringList before = logs();
    const auto source = fileSource(u"Source"_s);
    source->release();
    use({u"CommLog=1"_s, u"Debug=1"_s});
    addDataSource(u"Source"_s, FileSource::lines(source->file()));
    QCOMPARE(run({u"copy"_s, u"--dry-run"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource}).status, 0);
    QCOMPARE(run({u"create"_s}).status, 0);
    for (const char* command : {"upgrade", "compact"})
        QCOMPARE(run({QString::fromLatin1(command)}).status, 0);
    QVERIFY(run({u"check"_s}).out.contains(u"its driver leaves a log"_s));  // with other programs
    refuses({u"add-admin"_s, u"admin"_s}, u"There is a user already"_s);
    use(locked(u"wrong"_s) + QStringList{u"CommLog=1"_s});
    refuses({u"create"_s}, u"password authentication failed"_s);
    QCOMPARE(logs(), before);
}

QTEST_GUILESS_MAIN(TestBadServer)
#include "tst_badserver.moc"
