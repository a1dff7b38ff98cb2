#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QTest>

#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

class TestBackup : public ToolTest {
    Q_OBJECT
  private slots:
    void makesASoundFile();
    void takesWhatIsCommittedWhileOthersWrite();
    void neverTouchesAnExistingFile();
    void refusesASemicolonInThePath();
    void leavesNothingBehindAFailure_data();
    void leavesNothingBehindAFailure();
    void makesNoneOfADamagedDatabase();
};

QStringList filesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::Files | QDir::Hidden);
}

}  // namespace

void TestBackup::makesASoundFile() {
    create();
    const QString backup = path(u"backups/it's one.mdb"_s);
    const auto made = run({u"backup"_s, backup});
    QCOMPARE(made.err, QString());
    QCOMPARE(made.out, QString());
    QCOMPARE(made.status, 0);
    QCOMPARE(filesIn(path(u"backups"_s)), QStringList{u"it's one.mdb"_s});
    struct stat status {};
    QCOMPARE(stat(QFile::encodeName(backup).constData(), &status), 0);
    QCOMPARE(status.st_mode & 0777U, 0600U);

    addDataSource(u"Backup"_s, FileSource::lines(backup));
    QCOMPARE(run({u"check"_s, u"--dsn"_s, u"Backup"_s}).out, u"Backup: ok\n"_s);
    for (const char* sql : {"SELECT UserPwd FROM Users", "SELECT BaseUID FROM SiteData"})
        QCOMPARE(column(sql, u"Backup"_s), column(sql));
}

void TestBackup::takesWhatIsCommittedWhileOthersWrite() {
    const auto source = fileSource(u"Source"_s);
    source->run(
        u"UPDATE SiteData SET Organization = 'in the log'; BEGIN; UPDATE SiteData SET BaseUID = 'open'"_s);
    const QString backup = path(u"backup.mdb"_s);
    const auto made = run({u"backup"_s, backup, u"--dsn"_s, u"Source"_s});
    QCOMPARE(made.err, QString());
    QCOMPARE(made.status, 0);
    source->run(u"COMMIT"_s);
    addDataSource(u"Backup"_s, FileSource::lines(backup));
    QCOMPARE(column("SELECT Organization FROM SiteData", u"Backup"_s), QStringList{u"in the log"_s});
    QCOMPARE(column("SELECT BaseUID FROM SiteData", u"Backup"_s), QStringList{u"2.25.1234"_s});
}

void TestBackup::neverTouchesAnExistingFile() {
    create();
    const QString place = path(u"backup.mdb"_s);
    QFile file(place);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("precious");
    file.close();
    const auto refused = run({u"backup"_s, place});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.err, u"tessaly-db: There is a file %1 already: it is left as it is\n"_s.arg(place));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("precious"));
}

/// What stands before it would be opened in place of the copy, and found sound.
void TestBackup::refusesASemicolonInThePath() {
    create();
    for (const QString& place : {path(u"a;b/backup.mdb"_s), path(u"backup.mdb;old"_s)}) {
        const auto refused = run({u"backup"_s, place});
        QCOMPARE(refused.status, 1);
        QCOMPARE(refused.err,
                 u"tessaly-db: A new database cannot have a semicolon in its path: %1\n"_s.arg(place));
        QVERIFY(!QFile::exists(place));
    }
    QVERIFY(!QFile::exists(path(u"a;b"_s)));
    QCOMPARE(filesIn(scratch().folder()).filter(u"backup"_s), QStringList());
}

void TestBackup::leavesNothingBehindAFailure_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no data source") << QStringList{u"--dsn"_s, u"Other"_s};
    QTest::newRow("no database") << QStringList{};
    QTest::newRow("no room") << QStringList{u"--dsn"_s, u"Source"_s};
}

void TestBackup::leavesNothingBehindAFailure() {
    QFETCH(QStringList, arguments);
    const auto source = fileSource(u"Source"_s);
    QVERIFY(QDir().mkpath(path(u"backups"_s)));
    const auto failed =
        runLimited(50'000, QStringList{u"backup"_s, path(u"backups/backup.mdb"_s)} + arguments);
    QCOMPARE(failed.status, 1);
    QVERIFY2(isOneLine(failed.err), qPrintable(failed.err));
    QCOMPARE(filesIn(path(u"backups"_s)), QStringList());
    QVERIFY(!QFile::exists(file()));
}

void TestBackup::makesNoneOfADamagedDatabase() {
    const auto source = fileSource(u"Source"_s);
    source->run(u"PRAGMA journal_mode = delete"_s);
    source->release();
    QFile file(source->file());
    QVERIFY(file.open(QIODevice::ReadWrite));
    const auto place = file.readAll().indexOf("Test Hospital");
    QVERIFY(place > 0);
    constexpr qint64 PageSize = 4096;
    file.seek(place / PageSize * PageSize);
    file.write("\xff\xff\xff\xff");  // over the mark of the page's kind
    file.close();
    const auto refused = run({u"backup"_s, path(u"backup.mdb"_s), u"--dsn"_s, u"Source"_s});
    QCOMPARE(refused.status, 1);
    QVERIFY2(isOneLine(refused.err), qPrintable(refused.err));
    QCOMPARE(filesIn(scratch().folder()).filter(u"backup"_s), QStringList());
}

QTEST_GUILESS_MAIN(TestBackup)
#include "tst_backup.moc"
