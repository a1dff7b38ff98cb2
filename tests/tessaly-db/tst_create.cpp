#include <QDir>
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
    void refusesADatabaseThatHasATable();
    void leavesNothingBehindAFailure_data();
    void leavesNothingBehindAFailure();
    void explainsABadCommandLine_data();
    void explainsABadCommandLine();
    void refusesAttributesBesideTheDataSource();
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
        QStringList{u"11112,TESSALY,10,0,0,1,"_s + defaultImageRoot()});
    QCOMPARE(column("SELECT Version FROM SchemaVersion"), QStringList{u"4"_s});
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

void TestCreate::refusesADatabaseThatHasATable() {
    for (const QString& table : {u"Users"_s, u"SchemaVersion"_s, u"image"_s}) {
        QVERIFY(haveDatabase());
        change(u"CREATE TABLE %1 (x INTEGER)"_s.arg(table));
        const auto refused = run({u"create"_s});
        QCOMPARE(refused.status, 1);
        QCOMPARE(refused.out, QString());
        QVERIFY2(isOneLine(refused.err) && refused.err.endsWith(u" already: it is left as it is\n"_s),
                 qPrintable(refused.err));
        QCOMPARE(column(qPrintable(u"SELECT x FROM %1"_s.arg(table))), QStringList());
        change(u"DROP TABLE %1"_s.arg(table));
    }
}

void TestCreate::leavesNothingBehindAFailure_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("image folder is a file") << QStringList{u"--root"_s, u"/etc/passwd"_s};
    QTest::newRow("image folder cannot be made") << QStringList{u"--root"_s, u"/dev/null/x"_s};
    QTest::newRow("image folder too long") << QStringList{u"--root"_s, u'/' + QString(255, u'x')};
    QTest::newRow("no such data source") << QStringList{u"--dsn"_s, u"Other"_s};
}

void TestCreate::leavesNothingBehindAFailure() {
    QFETCH(QStringList, arguments);
    const auto failed = run(QStringList{u"create"_s} + arguments);
    QCOMPARE(failed.status, 1);
    QCOMPARE(failed.out, QString());
    QVERIFY2(isOneLine(failed.err), qPrintable(failed.err));
    QVERIFY(!hasTables());
}

void TestCreate::explainsABadCommandLine_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("nothing") << QStringList{};
    QTest::newRow("unknown command") << QStringList{u"nonsense"_s};
    QTest::newRow("unknown option") << QStringList{u"check"_s, u"--nonsense"_s};
    QTest::newRow("no number") << QStringList{u"copy"_s, u"--from"_s,  u"a"_s,          u"--to"_s,
                                              u"b"_s,    u"--limit"_s, u"few\033[31m"_s};
    QTest::newRow("no name") << QStringList{u"add-admin"_s};
    QTest::newRow("one word too many") << QStringList{u"check"_s, u"x"_s};
    QTest::newRow("option without value") << QStringList{u"check"_s, u"--dsn"_s};
}

void TestCreate::explainsABadCommandLine() {
    QFETCH(QStringList, arguments);
    const auto refused = run(arguments);
    QVERIFY2(refused.status > 1, qPrintable(QString::number(refused.status)));
    QCOMPARE(refused.out, QString());
    QVERIFY2(isOneLine(refused.err) && refused.err.startsWith(u"tessaly-db: "_s), qPrintable(refused.err));
    QVERIFY(!refused.err.contains(u'\033'));
    QCOMPARE(run({u"--help"_s}).status, 0);
}

/// Which is readable, and only then found to name none.
void TestCreate::refusesAttributesBesideTheDataSource() {
    const auto refused = run({u"check"_s, u"--dsn"_s, u"x;Database=y\033[31m"_s});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.out, u"ODBC knows no data source x;Database=y?[31m\n"_s);
    QCOMPARE(refused.err, QString());
}

void TestCreate::saysWhenThePasswordCannotBePrinted() {
    const auto made = run({u"create"_s}, u"/dev/full"_s);
    QCOMPARE(made.status, 1);
    QVERIFY2(made.err.contains(u"set-password"_s), qPrintable(made.err));
    QVERIFY(isOneLine(made.err));
}

QTEST_GUILESS_MAIN(TestCreate)
#include "tst_create.moc"
