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
    void namesALogWithThePassword_data();
    void namesALogWithThePassword();
    void saysWhichDestinationIsHidden();
    void saysWhenTheTablesAreOlder();
    void saysWhenTheTablesAreNewer();
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
    row("table", {u"DROP TABLE FtpNodes"_s}, {u"The table FtpNodes is missing: run tessaly-db upgrade"_s});
    row("table with required rows", {u"DROP TABLE Port"_s},
        {u"The table Port is missing: run tessaly-db upgrade"_s});
    row("column", {u"ALTER TABLE Printers DROP COLUMN Trim"_s},
        {u"Printers lacks the column Trim for text: run tessaly-db upgrade"_s});
    row("generated column", {u"ALTER TABLE Users DROP COLUMN User"_s},
        {u"Users lacks the column %1 for text: run tessaly-db upgrade"_s.arg(
            test::ScratchDatabase::isPostgresql() ? u"user"_s : u"User"_s)});
    row("column of another kind",
        {u"ALTER TABLE Printers DROP COLUMN Copies"_s,
         u"ALTER TABLE Printers ADD COLUMN Copies VARCHAR(9)"_s},
        {u"Printers lacks the column Copies for numbers: run tessaly-db upgrade"_s});
    row("look-up index", {u"DROP INDEX ImageBySeries"_s},
        {u"Image lacks an index for look-ups by SeriesInstanceUID: run tessaly-db upgrade"_s});
    row("unique index", {u"DROP INDEX PatientByPatientID"_s},
        {u"Patient lacks the unique key (PatientID): run tessaly-db upgrade"_s});
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
        {u"The table Image is missing: run tessaly-db upgrade"_s,
         u"The table Series is missing: run tessaly-db upgrade"_s, u"Port has no row"_s});
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
    QTest::addColumn<QStringList>("words");  // of the data source: a key and its value
    QTest::newRow("no data source") << QStringList{u"--dsn"_s, u"Other"_s} << QStringList{};
    if (!test::ScratchDatabase::isPostgresql()) {
        QTest::newRow("no file") << QStringList{} << QStringList{};
        return;
    }
    QTest::newRow("no server") << QStringList{} << QStringList{u"Servername"_s, u"/nowhere"_s};
    QTest::newRow("no database") << QStringList{} << QStringList{u"Database"_s, u"none"_s};
    QTest::newRow("unknown login") << QStringList{} << QStringList{u"Username"_s, u"stranger"_s};
}

void TestCheck::findsNoDatabase() {
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, words);
    if (!words.isEmpty())
        scratch().setDataSource(scratch().dataSource({words.join(u'=')}));
    const auto checked = run(QStringList{u"check"_s} + arguments);
    QCOMPARE(checked.status, 1);
    QVERIFY2(isOneLine(checked.out), qPrintable(checked.out));
    QCOMPARE(checked.err, QString());
    QVERIFY(!QFile::exists(file()));  // looking makes no database

    for (const QStringList& command : {QStringList{u"add-admin"_s, u"x"_s}, QStringList{u"create"_s},
                                       QStringList{u"upgrade"_s}, QStringList{u"set-password"_s, u"x"_s}}) {
        if (command.first() == u"create"_s && arguments.isEmpty() && words.isEmpty())
            continue;  // that is when it makes one
        const auto refused = run(command + arguments);
        QCOMPARE(refused.status, 1);
        QVERIFY2(isOneLine(refused.err), qPrintable(refused.err));
        QVERIFY(!QFile::exists(file()));
    }
}

void TestCheck::namesALogWithThePassword_data() {
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("telltale");
    const bool logs = test::ScratchDatabase::isPostgresql();  // the other driver passes over the words
    QTest::newRow("communication") << u"CommLog"_s << u"1"_s << logs;
    QTest::newRow("debugging") << u"Debug"_s << u"1"_s << logs;
    QTest::newRow("off") << u"CommLog"_s << u"0"_s << false;
}

void TestCheck::namesALogWithThePassword() {
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(bool, telltale);
    create();
    QString lines = scratch().dataSource({key + u'=' + value});
    if (!test::ScratchDatabase::isPostgresql())
        lines.replace(scratch().path(), file());
    scratch().setDataSource(lines);
    QCOMPARE(run({u"check"_s}).out,
             telltale ? u"The data source DicomFDB has %1=%2: its driver leaves a log in /tmp that shows the "
                        "password\n"_s.arg(key, value)
                      : u"DicomFDB: ok\n"_s);
}

void TestCheck::saysWhichDestinationIsHidden() {
    create();
    change(u"INSERT INTO DicomNodes (Name, AETitle, Store) VALUES ('pacs', 'Files', 1)"_s);
    change(u"INSERT INTO DicomNodes (Name, AETitle, Store) VALUES ('viewer', 'LASER', 0)"_s);
    change(u"INSERT INTO FtpNodes (Name) VALUES ('FILES')"_s);
    change(u"INSERT INTO FtpNodes (Name) VALUES ('laser')"_s);
    change(u"INSERT INTO Printers (Name) VALUES ('LASER')"_s);
    change(u"INSERT INTO Printers (Name) VALUES ('other')"_s);
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.out,
             u"The AE title of the DICOM node pacs hides the FTP node FILES as a destination\n"
             "The FTP node laser hides the printer LASER as a destination\n"_s);
    QCOMPARE(checked.status, 1);
}

void TestCheck::saysWhenTheTablesAreOlder() {
    create();
    change(u"DROP TABLE SchemaVersion"_s);
    change(u"ALTER TABLE Printers DROP COLUMN Trim"_s);
    change(u"DELETE FROM Port"_s);
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.out,
             u"The tables are of version 1, this program's are 4: run tessaly-db upgrade\n"
             "Port has no row\n"_s);
    QCOMPARE(checked.status, 1);
}

void TestCheck::saysWhenTheTablesAreNewer() {
    create();
    change(u"UPDATE SchemaVersion SET Version = 99"_s);
    QCOMPARE(run({u"check"_s}).out,
             u"The tables are of version 99, this program's are 4: it is too old for them\n"_s);
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
    TestCheck::change(change);
    QCOMPARE(run({u"check"_s}).out,
             canLogIn ? u"DicomFDB: ok\n"_s : u"Users has no administrator that can log in\n"_s);
}

QTEST_GUILESS_MAIN(TestCheck)
#include "tst_check.moc"
