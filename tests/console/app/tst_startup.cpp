#include <sqlite3.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

#include "console/session/Globals.h"
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
        if (!console.waitForFinished(60'000) || console.exitStatus() != QProcess::NormalExit)
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
    const QString others = u"SELECT group_concat(sql) FROM sqlite_master WHERE tbl_name<>'FtpNodes'"_s;
    database_->run(u"DROP TABLE FtpNodes"_s);
    const QString before = database_->value(others);
    QCOMPARE(start().met, (QStringList{Login, MainWindow}));
    QCOMPARE(database_->value(u"SELECT sql FROM sqlite_master WHERE name='FtpNodes'"_s),
             u"CREATE TABLE FtpNodes ( Name VARCHAR(16) NOT NULL PRIMARY KEY, Host VARCHAR(64), "
             "UserName VARCHAR(16), UserPwd VARCHAR(16), Destination VARCHAR(128), NodeType VARCHAR(8))"_s);
    QCOMPARE(database_->value(others), before);
}

void StartupTest::ftpNodesIsLeftAloneWhereItExists() {
    database_->run(u"DROP TABLE FtpNodes"_s);
    database_->run(u"CREATE TABLE FTPNODES (Name TEXT, Extra TEXT)"_s);
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
    QCOMPARE(run.met.size(), 4);
    QVERIFY2(run.met.at(0).startsWith(u"box 3 \"\" "_s), qPrintable(run.met.at(0)));
    QVERIFY2(run.met.at(0).contains(u"already an index named FtpNodes"_s), qPrintable(run.met.at(0)));
    QCOMPARE(run.met.at(1), Login);
    // The list then says for itself that it cannot be loaded.
    QVERIFY2(run.met.at(2).startsWith(u"box 0 \"\" "_s), qPrintable(run.met.at(2)));
    QCOMPARE(run.met.at(3), MainWindow);
}

void StartupTest::badDatabasesEndTheConsoleWithAReason_data() {
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no data source") << u"Other"_s << u"DicomDB.mdb"_s << u"Data source name not found"_s;
    QTest::newRow("no file") << u"DicomFDB"_s << u"mistyped.mdb"_s << u"connect failed"_s;
    QTest::newRow("no folder") << u"DicomFDB"_s << u"nowhere/DicomDB.mdb"_s << u"connect failed"_s;
    QTest::newRow("cannot be read") << u"DicomFDB"_s << u"images"_s << u"connect failed"_s;
    QTest::newRow("not a database") << u"DicomFDB"_s << u"odbc.ini"_s << u"not a database"_s;
}

void StartupTest::badDatabasesEndTheConsoleWithAReason() {
    QFETCH(QString, section);
    QFETCH(QString, path);
    QFETCH(QString, reason);
    database_->writeDataSource(QDir{database_->folder()}.filePath(path), section);
    const QStringList before = QDir{database_->folder()}.entryList(QDir::AllEntries);
    const Run run = start();
    QCOMPARE(run.status, 1);
    QCOMPARE(run.met.size(), 1);
    QVERIFY2(run.first().startsWith(u"box 3 \"\" "_s) && run.first().contains(reason),
             qPrintable(run.first()));
    QCOMPARE(QDir{database_->folder()}.entryList(QDir::AllEntries), before);  // nothing was made by accident
}

void StartupTest::aLockedDatabaseEndsTheConsole() {
    database_->run(u"PRAGMA journal_mode=DELETE"_s);
    QFile ini{database_->odbcIni()};
    QVERIFY(ini.open(QIODevice::ReadWrite));
    const QByteArray impatient =
        ini.readAll().replace("Timeout=5000", "Timeout=50").replace("JournalMode=WAL\n", "");
    ini.resize(0);
    ini.write(impatient);
    ini.close();
    database_->run(u"BEGIN EXCLUSIVE"_s);
    const Run run = start();
    database_->run(u"COMMIT"_s);
    QCOMPARE(run.status, 1);
    QCOMPARE(run.met.size(), 1);
    QVERIFY2(run.first().contains(u"database is locked"_s), qPrintable(run.first()));
}

void StartupTest::aMissingTableOrColumnEndsTheLogin_data() {
    QTest::addColumn<QString>("damage");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no table") << u"DROP TABLE Users"_s << u"no such table: Users"_s;
    QTest::newRow("no right") << u"ALTER TABLE Users DROP COLUMN DcmAdmin"_s << u"no such column: DcmAdmin"_s;
    QTest::newRow("no password") << u"ALTER TABLE Users DROP COLUMN UserPwd"_s << u"Unknown column UserPwd"_s;
}

void StartupTest::aMissingTableOrColumnEndsTheLogin() {
    QFETCH(QString, damage);
    QFETCH(QString, reason);
    database_->run(damage);
    const Run run = start();
    QCOMPARE(run.status, 1);
    QCOMPARE(run.met.size(), 2);
    QCOMPARE(run.first(), Login);
    QVERIFY2(run.met.at(1).startsWith(u"box 3 \"\" "_s) && run.met.at(1).contains(reason),
             qPrintable(run.met.at(1)));
}

void StartupTest::theChangedFlagStartsFalse() {
    // The main window of these runs closes without the question that the flag would bring up.
    QCOMPARE(start().met, (QStringList{Login, MainWindow}));
    QVERIFY(!Globals::ConfigChanged());
    QCOMPARE(Globals::EncodePassword({}), QString{});
}

QTEST_MAIN(StartupTest)
#include "tst_startup.moc"
