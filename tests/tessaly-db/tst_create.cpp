#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

class TestCreate : public ToolTest {
    Q_OBJECT
  private slots:
    void makesADatabase();
    void takesNameAndImageFolder();
    void everyDatabaseGetsItsOwnUidAndPassword();
    void neverTouchesAnExistingFile();
    void leavesNothingBehindAFailure_data();
    void leavesNothingBehindAFailure();
    void refusesAnOldLog();
    void refusesASemicolonInThePath();
    void explainsABadCommandLine_data();
    void explainsABadCommandLine();
    void saysWhenThePasswordCannotBePrinted();
};

}  // namespace

void TestCreate::makesADatabase() {
    const auto made = run({u"create"_s});
    QCOMPARE(made.err, QString());
    QCOMPARE(made.status, 0);

    const QString password = toldPassword(made.out, u"admin"_s);
    QCOMPARE(password.size(), 16);
    QCOMPARE(storedPassword(u"admin"_s), encoded(password));
    QCOMPARE(
        column("SELECT UserName || DcmAdmin || DcmUpdate || DcmDelete || Move || Refert || Send || Backup"
               " || Import || ROI || ModTags || WLogin || '\"' || Signature || '\"' AS x FROM Users"),
        QStringList{u"admin11111111110\"\""_s});
    QCOMPARE(column("SELECT LogLevel || ',' || DumpLevel || ',' || QueryTimeout AS x FROM DicomServer"),
             QStringList{u"1,0,30"_s});
    QCOMPARE(column("SELECT Organization FROM SiteData"), QStringList{u"Unknown"_s});
    QCOMPARE(
        column("SELECT Port || ',' || AETitle || ',' || MaxConnections || ',' || CheckCallingAE || ',' ||"
               " CheckCalledAE || ',' || SaveCompressed || ',' || Root AS x FROM Port"),
        QStringList{u"11112,TESSALY,10,0,0,1,"_s + path(u"data/images"_s)});

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

void TestCreate::takesNameAndImageFolder() {
    const QString root = path(u"Bilder für alle/hier"_s);
    const auto made = run({u"create"_s, u"--admin"_s, u"Zoë"_s, u"--root"_s, root});
    QCOMPARE(made.status, 0);
    QCOMPARE(storedPassword(u"Zoë"_s), encoded(toldPassword(made.out, u"Zoë"_s)));
    QCOMPARE(column("SELECT Root FROM Port"), QStringList{root});
    QVERIFY(QDir(root).exists());
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
}

void TestCreate::everyDatabaseGetsItsOwnUidAndPassword() {
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

void TestCreate::neverTouchesAnExistingFile() {
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

void TestCreate::leavesNothingBehindAFailure_data() {
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

void TestCreate::leavesNothingBehindAFailure() {
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

void TestCreate::refusesAnOldLog() {
    QVERIFY(QDir().mkpath(path(u"data"_s)));
    QVERIFY(QFile(file() + u"-wal"_s).open(QIODevice::WriteOnly));
    const auto refused = run({u"create"_s});
    QCOMPARE(refused.status, 1);
    QVERIFY2(refused.err.contains(u"DicomDB.mdb-wal"_s), qPrintable(refused.err));
    QVERIFY(!QFile::exists(file()));
}

void TestCreate::refusesASemicolonInThePath() {
    const QString named = path(u"a;b/DicomDB.mdb"_s);
    scratch().writeDataSource(named);
    const auto refused = run({u"create"_s});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.err,
             u"tessaly-db: A new database cannot have a semicolon in its path: %1\n"_s.arg(named));
    QVERIFY(!QFile::exists(path(u"a"_s)));
    QVERIFY(!QFile::exists(path(u"a;b"_s)));
}

void TestCreate::explainsABadCommandLine_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("nothing") << QStringList{};
    QTest::newRow("unknown command") << QStringList{u"destroy"_s};
    QTest::newRow("no name") << QStringList{u"add-admin"_s};
    QTest::newRow("one word too many") << QStringList{u"check"_s, u"x"_s};
    QTest::newRow("option without value") << QStringList{u"check"_s, u"--dsn"_s};
    QTest::newRow("attributes beside the data source")
        << QStringList{u"check"_s, u"--dsn"_s, u"x;Database=y"_s};
}

void TestCreate::explainsABadCommandLine() {
    QFETCH(QStringList, arguments);
    const auto refused = run(arguments);
    QCOMPARE(refused.status, 1);
    QVERIFY2(isOneLine(refused.err + refused.out), qPrintable(refused.err + refused.out));
    QCOMPARE(run({u"--help"_s}).status, 0);
}

void TestCreate::saysWhenThePasswordCannotBePrinted() {
    const auto made = run({u"create"_s}, u"/dev/full"_s);
    QCOMPARE(made.status, 1);
    QVERIFY2(made.err.contains(u"set-password"_s), qPrintable(made.err));
    QVERIFY(isOneLine(made.err));
}

QTEST_GUILESS_MAIN(TestCreate)
#include "tst_create.moc"
