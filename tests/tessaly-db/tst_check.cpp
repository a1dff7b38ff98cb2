#include <QDir>
#include <QFile>
#include <QTest>

#include "console/session/Globals.h"
#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

class TestCheck : public ToolTest {
    Q_OBJECT
  private slots:
    void findsNoFault();
    void hasNothingAgainstTheConsolesOwnTable();
    void findsFaults_data();
    void findsFaults();
    void findsNoDatabase_data();
    void findsNoDatabase();
    void countsWhoCanLogIn_data();
    void countsWhoCanLogIn();
};

}  // namespace

void TestCheck::findsNoFault() {
    create();
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.status, 0);
    QCOMPARE(checked.out, u"DicomFDB: ok\n"_s);
    QCOMPARE(checked.err, QString());
    QVERIFY(!QFile::exists(file() + u"-wal"_s));
}

void TestCheck::hasNothingAgainstTheConsolesOwnTable() {
    create();
    change(u"DROP TABLE FtpNodes"_s);
    scratch().openConsoleConnection();
    Globals::EnsureFtpNodesTable();
    Globals::DbConnection().close();
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
}

void TestCheck::findsFaults_data() {
    QTest::addColumn<QStringList>("changes");
    QTest::addColumn<QStringList>("faults");
    const auto row = [](const char* name, const QStringList& changes, const QStringList& faults) {
        QTest::newRow(name) << changes << faults;
    };
    row("table", {u"DROP TABLE FtpNodes"_s}, {u"The table FtpNodes is missing"_s});
    row("table with required rows", {u"DROP TABLE Port"_s}, {u"The table Port is missing"_s});
    row("column", {u"ALTER TABLE Printers DROP COLUMN Trim"_s},
        {u"Printers lacks the column Trim for text"_s});
    row("generated column", {u"ALTER TABLE Users DROP COLUMN User"_s},
        {u"Users lacks the column User for text"_s});
    row("column of another kind",
        {u"ALTER TABLE Printers DROP COLUMN Copies"_s,
         u"ALTER TABLE Printers ADD COLUMN Copies VARCHAR(9)"_s},
        {u"Printers lacks the column Copies for numbers"_s});
    row("look-up index", {u"DROP INDEX ImageBySeries"_s},
        {u"Image lacks an index for look-ups by SeriesInstanceUID"_s});
    row("unique index", {u"DROP INDEX PatientByPatientID"_s},
        {u"Patient lacks the unique key (PatientID)"_s});
    row("key that compares with case",
        {u"DROP TABLE DicomNodes"_s,
         u"CREATE TABLE DicomNodes (Name VARCHAR(16) NOT NULL PRIMARY KEY, AETitle VARCHAR(16),"
         " LocalAETitle VARCHAR(16), Host VARCHAR(64), Port VARCHAR(16), Store INTEGER, Query INTEGER,"
         " Print INTEGER)"_s},
        {u"DicomNodes lacks the unique key (Name without case)"_s});
    row("destinations without a key",
        {u"DROP TABLE FtpNodes"_s,
         u"CREATE TABLE FtpNodes (Name VARCHAR(16), Host VARCHAR(64), UserName VARCHAR(16),"
         " UserPwd VARCHAR(16), Destination VARCHAR(128), NodeType VARCHAR(8))"_s},
        {u"FtpNodes lacks the unique key (Name)"_s});
    row("no server row", {u"DELETE FROM DicomServer"_s}, {u"DicomServer has 0 rows instead of one"_s});
    row("two site rows", {u"INSERT INTO SiteData VALUES ('', '')"_s},
        {u"SiteData has 2 rows instead of one"_s});
    row("no port", {u"DELETE FROM Port"_s}, {u"Port has no row"_s});
    row("several", {u"DROP TABLE Series"_s, u"DELETE FROM Port"_s, u"DROP TABLE Image"_s},
        {u"The table Image is missing"_s, u"The table Series is missing"_s, u"Port has no row"_s});
    row("case of a name", {u"DROP INDEX StudyByPatient"_s, u"CREATE INDEX x ON STUDY (IDPATIENT)"_s},
        {u"DicomFDB: ok"_s});
}

void TestCheck::findsFaults() {
    QFETCH(QStringList, changes);
    QFETCH(QStringList, faults);
    create();
    for (const QString& sql : changes)
        change(sql);
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.out, faults.join(u'\n') + u'\n');
    QCOMPARE(checked.status, faults.first().endsWith(u"ok"_s) ? 0 : 1);
    QCOMPARE(checked.err, QString());
}

void TestCheck::findsNoDatabase_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("no data source") << QStringList{u"--dsn"_s, u"Other"_s} << QByteArray();
    QTest::newRow("no file") << QStringList{} << QByteArray();
    QTest::newRow("no database") << QStringList{} << QByteArray(10'000, 'x');
}

void TestCheck::findsNoDatabase() {
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, content);
    if (!content.isEmpty()) {
        QVERIFY(QDir().mkpath(path(u"data"_s)));
        QFile database(file());
        QVERIFY(database.open(QIODevice::WriteOnly));
        database.write(content);
    }
    const auto checked = run(QStringList{u"check"_s} + arguments);
    QCOMPARE(checked.status, 1);
    QVERIFY2(isOneLine(checked.out), qPrintable(checked.out));
    QCOMPARE(checked.err, QString());
    QCOMPARE(QFile::exists(file()), !content.isEmpty());  // looking makes no database

    const auto adding = run(QStringList{u"add-admin"_s, u"x"_s} + arguments);
    QCOMPARE(adding.status, 1);
    QVERIFY2(isOneLine(adding.err), qPrintable(adding.err));
    QCOMPARE(QFile::exists(file()), !content.isEmpty());
}

void TestCheck::countsWhoCanLogIn_data() {
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("canLogIn");
    QTest::newRow("no password") << u"UPDATE Users SET UserPwd = NULL"_s << true;
    QTest::newRow("empty password") << u"UPDATE Users SET UserPwd = ''"_s << true;
    QTest::newRow("right in another notation") << u"UPDATE Users SET DcmAdmin = -1"_s << true;
    QTest::newRow("password as typed") << u"UPDATE Users SET UserPwd = 'secret'"_s << false;
    QTest::newRow("no right") << u"UPDATE Users SET DcmAdmin = 0"_s << false;
    QTest::newRow("no user") << u"DELETE FROM Users"_s << false;
}

void TestCheck::countsWhoCanLogIn() {
    QFETCH(QString, change);
    QFETCH(bool, canLogIn);
    create();
    this->change(change);
    QCOMPARE(run({u"check"_s}).out,
             canLogIn ? u"DicomFDB: ok\n"_s : u"Users has no administrator that can log in\n"_s);
}

QTEST_GUILESS_MAIN(TestCheck)
#include "tst_check.moc"
