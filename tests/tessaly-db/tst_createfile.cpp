#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <csignal>

#include "tests/support/Eventually.h"
#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

/// What an engine alone has that keeps its database in a file.
class TestCreateFile : public ToolTest {
    Q_OBJECT
  private slots:
    void makesAFileForItsOwnerAlone();
    void everyDatabaseGetsItsOwnUidAndPassword();
    void neverTouchesAnExistingFile();
    void leavesNothingBehindAFailure_data();
    void leavesNothingBehindAFailure();
    void refusesAnOldLog();
    void refusesASemicolonInThePath();
    void leavesNothingBehindASignal_data();
    void leavesNothingBehindASignal();
};

}  // namespace

void TestCreateFile::makesAFileForItsOwnerAlone() {
    QCOMPARE(run({u"create"_s}).status, 0);
    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList({u"DicomDB.mdb"_s, u"images"_s}));
    struct stat status {};
    QCOMPARE(stat(QFile::encodeName(file()).constData(), &status), 0);
    QCOMPARE(status.st_mode & 0777U, 0600U);
    QCOMPARE(stat(QFile::encodeName(path(u"data"_s)).constData(), &status), 0);
    QCOMPARE(status.st_mode & 0777U, 0700U);
    QFile database(file());
    QVERIFY(database.open(QIODevice::ReadOnly));
    QCOMPARE(database.read(20).sliced(18), QByteArray("\2\2"));  // the header's mark of a write-ahead log
}

void TestCreateFile::everyDatabaseGetsItsOwnUidAndPassword() {
    QSet<QString> uids;
    QSet<QString> passwords;
    for (int i = 0; i < 5; ++i) {
        scratch().writeDataSource(path(u"%1/DicomDB.mdb"_s.arg(i)));
        passwords += toldPassword(run({u"create"_s}).out, u"admin"_s);
        uids += column("SELECT BaseUID FROM SiteData").join(u',');
    }
    QCOMPARE(passwords.size(), 5);
    QCOMPARE(uids.size(), 5);
    // One arc below 2.25, with room for what the server appends.
    const QRegularExpression form(u"^2\\.25\\.[1-9][0-9]{1,38}$"_s);
    for (const QString& uid : uids)
        QVERIFY2(form.match(uid).hasMatch(), qPrintable(uid));
}

void TestCreateFile::neverTouchesAnExistingFile() {
    QVERIFY(QDir().mkpath(path(u"data"_s)));
    QFile database(file());
    QVERIFY(database.open(QIODevice::WriteOnly));
    database.write("precious");
    database.close();
    const auto refused = run({u"create"_s});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.out, QString());
    QCOMPARE(refused.err, u"tessaly-db: There is a file %1 already: it is left as it is\n"_s.arg(file()));
    QVERIFY(database.open(QIODevice::ReadOnly));
    QCOMPARE(database.readAll(), QByteArray("precious"));
    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::Files), QStringList{u"DicomDB.mdb"_s});
}

void TestCreateFile::leavesNothingBehindAFailure_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("database");
    QTest::newRow("image folder is a file") << QStringList{u"--root"_s, u"/etc/passwd"_s} << QString();
    QTest::newRow("image folder cannot be made") << QStringList{u"--root"_s, u"/dev/null/x"_s} << QString();
    QTest::newRow("image folder too long")
        << QStringList{u"--root"_s, u'/' + QString(255, u'x')} << QString();
    QTest::newRow("no such data source") << QStringList{u"--dsn"_s, u"Other"_s} << QString();
    QTest::newRow("no file named") << QStringList{} << u" "_s;
    QTest::newRow("relative path") << QStringList{} << u"DicomDB.mdb"_s;
    QTest::newRow("a folder") << QStringList{} << u"/"_s;
    QTest::newRow("folder cannot be made") << QStringList{} << u"/dev/null/DicomDB.mdb"_s;
    QTest::newRow("folder takes no file") << QStringList{} << u"/proc/DicomDB.mdb"_s;
}

void TestCreateFile::leavesNothingBehindAFailure() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, database);
    if (!database.isEmpty())
        scratch().writeDataSource(database);
    const auto failed = run(QStringList{u"create"_s} + arguments);
    QCOMPARE(failed.status, 1);
    QCOMPARE(failed.out, QString());
    QVERIFY2(isOneLine(failed.err), qPrintable(failed.err));
    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::Files | QDir::Hidden), QStringList());
}

void TestCreateFile::refusesAnOldLog() {
    QVERIFY(QDir().mkpath(path(u"data"_s)));
    QVERIFY(QFile(file() + u"-wal"_s).open(QIODevice::WriteOnly));
    const auto refused = run({u"create"_s});
    QCOMPARE(refused.status, 1);
    QVERIFY2(refused.err.contains(u"DicomDB.mdb-wal"_s), qPrintable(refused.err));
    QVERIFY(!QFile::exists(file()));
}

void TestCreateFile::refusesASemicolonInThePath() {
    const QString named = path(u"a;b/DicomDB.mdb"_s);
    scratch().writeDataSource(named);
    const auto refused = run({u"create"_s});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.err,
             u"tessaly-db: A new database cannot have a semicolon in its path: %1\n"_s.arg(named));
    QVERIFY(!QFile::exists(path(u"a"_s)));
    QVERIFY(!QFile::exists(path(u"a;b"_s)));
}

void TestCreateFile::leavesNothingBehindASignal_data() {
    QTest::addColumn<int>("signal");
    QTest::newRow("Ctrl-C") << SIGINT;
    QTest::newRow("the end of the session") << SIGHUP;
    QTest::newRow("the end of the system") << SIGTERM;
}

/// The signal may come at any moment from the making of the file on, also when all is done: the database is
/// then there, or nothing is.
void TestCreateFile::leavesNothingBehindASignal() {
    QFETCH(int, signal);
    QVERIFY(QDir().mkpath(path(u"data"_s)));
    const QDir folder{path(u"data"_s)};
    for (int round = 0; round < 5; ++round) {
        QProcess creating;
        creating.setStandardInputFile(QProcess::nullDevice());
        creating.start(QStringLiteral(TESSALY_DB), {u"create"_s});
        QVERIFY(creating.waitForStarted());
        const auto pid = static_cast<pid_t>(creating.processId());
        while (creating.state() == QProcess::Running && folder.entryList(QDir::Files).isEmpty())
            creating.waitForFinished(1);
        if (creating.state() == QProcess::Running)
            kill(pid, signal);
        QVERIFY(creating.state() == QProcess::NotRunning || creating.waitForFinished(test::PatienceMs));
        const bool brokenOff = creating.exitStatus() == QProcess::NormalExit && creating.exitCode() == 1;
        QCOMPARE(folder.entryList(QDir::Files | QDir::Hidden),
                 brokenOff ? QStringList{} : QStringList{u"DicomDB.mdb"_s});
        if (brokenOff)
            QCOMPARE(creating.readAllStandardError(), "tessaly-db: Broken off: nothing was written\n"_ba);
        QFile::remove(file());
    }
}

QTEST_GUILESS_MAIN(TestCreateFile)
#include "tst_createfile.moc"
