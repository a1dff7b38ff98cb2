#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

#include "console/session/Globals.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchCluster.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString Login = QStringLiteral("login");
const QString MainWindow = QStringLiteral("main window");

/// What one run of the console came to.
struct Run {
    int status = -1;
    QStringList met;
    [[nodiscard]] QString first() const { return met.isEmpty() ? QString{} : met.first(); }
    /// The descriptions of some engines have several lines.
    [[nodiscard]] QString all() const { return met.join(u'\n'); }
};

}  // namespace

class StartupTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() { database_ = std::make_unique<ScratchDatabase>(); }
    void cleanup() { database_.reset(); }

    void anAdministratorReachesTheMainWindow();
    void cancellingTheLoginEndsWithoutAWord();
    void aRefusedLoginEndsTheConsole();
    void ftpNodesIsMadeWhereItIsMissing();
    void ftpNodesIsLeftAloneWhereItExists();
    void aFailedCreationIsShownAndStartUpGoesOn();
    void badDatabasesEndTheConsoleWithAReason_data();
    void badDatabasesEndTheConsoleWithAReason();
    void aLockedDatabaseEndsTheConsole();
    void aMissingTableOrColumnEndsTheLogin_data();
    void aMissingTableOrColumnEndsTheLogin();
    void theChangedFlagStartsFalse();

  private:
    static Run start(const QString& user = ScratchDatabase::Administrator,
                     const QString& password = ScratchDatabase::Password) {
        QProcess console;
        console.start(QStringLiteral(CONSOLE_CHILD), {user, password});
        if (!console.waitForFinished(test::PatienceMs) || console.exitStatus() != QProcess::NormalExit)
            return {};
        return {console.exitCode(),
                QString::fromUtf8(console.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts)};
    }

    std::unique_ptr<ScratchDatabase> database_;
};

void StartupTest::anAdministratorReachesTheMainWindow() {
    const Run run = start();
    QCOMPARE(run.status, 0);
    QCOMPARE(run.met, (QStringList{Login, MainWindow}));
}

void StartupTest::cancellingTheLoginEndsWithoutAWord() {
    const Run run = start({}, {});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.met, QStringList{Login});
}

void StartupTest::aRefusedLoginEndsTheConsole() {
    const Run run = start(ScratchDatabase::Administrator, u"wrong"_s);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.met, (QStringList{Login, u"box 0 \"Accesso\" Password o utente non validi. Riprovare."_s}));
}

void StartupTest::ftpNodesIsMadeWhereItIsMissing() {
    const QString columns =
        u"SELECT string_agg(column_name || ' ' || udt_name || '(' || character_maximum_length || ') ' || "
        "is_nullable, ', ' ORDER BY table_name, ordinal_position) FROM information_schema.columns "
        "WHERE table_schema='public' AND table_name%1'ftpnodes'"_s;
    const QString statements =
        u"SELECT group_concat(sql) FROM sqlite_master WHERE tbl_name%1'FtpNodes' AND sql IS NOT NULL"_s;
    const auto stored = [&](const QString& which) {
        return database_->value((ScratchDatabase::isPostgresql() ? columns : statements).arg(which));
    };
    database_->run(u"DROP TABLE FtpNodes"_s);
    const QString others = stored(u"<>"_s);
    QVERIFY(!others.isEmpty());
    QCOMPARE(start().met, (QStringList{Login, MainWindow}));
    QCOMPARE(
        stored(u"="_s),
        ScratchDatabase::isPostgresql()
            ? u"name varchar(16) NO, host varchar(64) YES, username varchar(16) YES, userpwd varchar(16) "
              "YES, destination varchar(128) YES, nodetype varchar(8) YES"_s
            : u"CREATE TABLE FtpNodes ( Name VARCHAR(16) NOT NULL PRIMARY KEY, Host VARCHAR(64), "
              "UserName VARCHAR(16), UserPwd VARCHAR(16), Destination VARCHAR(128), NodeType "
              "VARCHAR(8))"_s);
    QCOMPARE(stored(u"<>"_s), others);
}

void StartupTest::ftpNodesIsLeftAloneWhereItExists() {
    database_->run(u"DROP TABLE FtpNodes"_s);
    database_->define(u"CREATE TABLE FTPNODES (Name TEXT, Extra TEXT)"_s);
    database_->run(u"INSERT INTO FTPNODES VALUES ('kept', 'too')"_s);
    const Run run = start();
    QCOMPARE(run.status, 0);
    QCOMPARE(run.met.first(), Login);
    QCOMPARE(database_->rows(u"SELECT * FROM FtpNodes"_s), (QList<QStringList>{{u"kept"_s, u"too"_s}}));
}

void StartupTest::aFailedCreationIsShownAndStartUpGoesOn() {
    // An index holds the name: the catalogue has no such table, and none can be made.
    database_->run(u"DROP TABLE FtpNodes"_s);
    database_->run(u"CREATE INDEX FtpNodes ON Users (UserName)"_s);
    const Run run = start();
    QCOMPARE(run.status, 0);
    const auto login = run.met.indexOf(Login);
    QVERIFY(login > 0);
    QVERIFY2(run.first().startsWith(u"box 3 \"\" "_s), qPrintable(run.all()));
    QVERIFY2(run.met.mid(0, login).join(u'\n').contains(ScratchDatabase::isPostgresql()
                                                            ? u"relation \"ftpnodes\" already exists"_s
                                                            : u"already an index named FtpNodes"_s),
             qPrintable(run.all()));
    // The list then says for itself that it cannot be loaded.
    QVERIFY2(run.met.at(login + 1).startsWith(u"box 0 \"\" "_s), qPrintable(run.all()));
    QCOMPARE(run.met.last(), MainWindow);
}

void StartupTest::badDatabasesEndTheConsoleWithAReason_data() {
    QTest::addColumn<QString>("section");
    QTest::addColumn<QStringList>("changes");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* name, const QStringList& changes, const QString& reason) {
        QTest::newRow(name) << u"DicomFDB"_s << changes << reason;
    };
    QTest::newRow("no data source") << u"Other"_s << QStringList{} << u"Data source name not found"_s;
    if (ScratchDatabase::isPostgresql()) {
        row("no server", {u"Servername=/nowhere"_s}, u"No such file or directory"_s);
        row("no listener", {u"Servername=127.0.0.1"_s, u"Port=1"_s}, u"Connection refused"_s);
        row("no database", {u"Database=nowhere"_s}, u"database \"nowhere\" does not exist"_s);
        row("no such user", {u"Username=nobody"_s}, u"role \"nobody\" does not exist"_s);
        row("a wrong password", {u"Username="_s + ScratchCluster::Locked, u"Password=wrong"_s},
            u"password authentication failed for user \"locked\""_s);
        row("another encoding", {u"Database=latin1"_s},
            u"The database has the encoding LATIN1; it has to be UTF8"_s);
    } else {
        row("no file", {u"Database=mistyped.mdb"_s}, u"connect failed"_s);
        row("no folder", {u"Database=nowhere/DicomDB.mdb"_s}, u"connect failed"_s);
        row("cannot be read", {u"Database=images"_s}, u"connect failed"_s);
        row("not a database", {u"Database=odbc.ini"_s}, u"not a database"_s);
    }
}

void StartupTest::badDatabasesEndTheConsoleWithAReason() {
    QFETCH(QString, section);
    QFETCH(QStringList, changes);
    QFETCH(QString, reason);
    if (!ScratchDatabase::isPostgresql())
        changes.replaceInStrings(u"Database="_s, u"Database="_s + database_->folder() + u'/');
    database_->setDataSource(database_->dataSource(changes), section);
    const QStringList before = QDir{database_->folder()}.entryList(QDir::AllEntries);
    const Run run = start();
    QCOMPARE(run.status, 1);
    QVERIFY2(run.first().startsWith(u"box 3 \"\" "_s) && run.all().contains(reason), qPrintable(run.all()));
    QVERIFY(!run.met.contains(Login));
    QCOMPARE(QDir{database_->folder()}.entryList(QDir::AllEntries), before);  // nothing was made by accident
}

void StartupTest::aLockedDatabaseEndsTheConsole() {
    QStringList metBefore;
    QString reason = u"database is locked"_s;
    if (ScratchDatabase::isPostgresql()) {
        // Connecting locks nothing: the login meets the lock, and waits as long as the data source says.
        database_->setDataSource(database_->dataSource({u"ConnSettings=SET lock_timeout TO 50"_s}));
        database_->run(u"BEGIN"_s);
        database_->run(u"LOCK TABLE Users"_s);
        metBefore << Login;
        reason = u"canceling statement due to lock timeout"_s;
    } else {
        database_->run(u"PRAGMA journal_mode=DELETE"_s);
        QString impatient = database_->dataSource({u"Timeout=50"_s});
        database_->setDataSource(impatient.remove(u"JournalMode=WAL\n"_s));
        database_->run(u"BEGIN EXCLUSIVE"_s);
    }
    const Run run = start();
    database_->run(u"COMMIT"_s);
    QCOMPARE(run.status, 1);
    QCOMPARE(run.met.mid(0, metBefore.size()), metBefore);
    QVERIFY2(run.all().contains(reason), qPrintable(run.all()));
    QVERIFY(!run.met.contains(MainWindow));
}

void StartupTest::aMissingTableOrColumnEndsTheLogin_data() {
    QTest::addColumn<QString>("damage");
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("column");
    QTest::newRow("no table") << u"DROP TABLE Users"_s << u"Users"_s << QString{};
    QTest::newRow("no right") << u"ALTER TABLE Users DROP COLUMN DcmAdmin"_s << QString{} << u"DcmAdmin"_s;
    QTest::newRow("no password") << u"ALTER TABLE Users DROP COLUMN UserPwd"_s << QString{} << QString{};
}

void StartupTest::aMissingTableOrColumnEndsTheLogin() {
    QFETCH(QString, damage);
    QFETCH(QString, table);
    QFETCH(QString, column);
    database_->run(damage);
    const QString reason = !table.isEmpty()    ? database_->noTable(table)
                           : !column.isEmpty() ? database_->noColumn(column)
                                               : u"Unknown column UserPwd"_s;
    const Run run = start();
    QCOMPARE(run.status, 1);
    QCOMPARE(run.first(), Login);
    QVERIFY2(run.met.at(1).startsWith(u"box 3 \"\" "_s) && run.all().contains(reason), qPrintable(run.all()));
    QVERIFY(!run.met.contains(MainWindow));
}

void StartupTest::theChangedFlagStartsFalse() {
    // The main window of these runs closes without the question that the flag would bring up.
    QCOMPARE(start().met, (QStringList{Login, MainWindow}));
    QVERIFY(!Globals::ConfigChanged());
    QCOMPARE(Globals::EncodePassword({}), QString{});
}

QTEST_MAIN(StartupTest)
#include "tst_startup.moc"
