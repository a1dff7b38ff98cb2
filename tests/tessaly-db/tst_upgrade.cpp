#include <QFile>
#include <QTest>

#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

class TestUpgrade : public ToolTest {
    Q_OBJECT
  private slots:
    void leavesTodaysTablesAlone();
    void upgradesAnOlderDatabase();
    void addsAnyColumnThatHasADefault_data();
    void addsAnyColumnThatHasADefault();
    void refusesANewerDatabase();
    void makesNoTablesWhereThereAreNone_data();
    void makesNoTablesWhereThereAreNone();
    void saysWhatTheEngineRefuses();
};

}  // namespace

void TestUpgrade::leavesTodaysTablesAlone() {
    create();
    const auto before = column("SELECT Version FROM SchemaVersion");
    const auto upgraded = run({u"upgrade"_s});
    QCOMPARE(upgraded.out, u"DicomFDB: version 4, nothing to do\n"_s);
    QCOMPARE(upgraded.err, QString());
    QCOMPARE(upgraded.status, 0);
    const auto quiet = run({u"upgrade"_s, u"--quiet"_s});
    QCOMPARE(quiet.out, QString());
    QCOMPARE(quiet.status, 0);
    QCOMPARE(column("SELECT Version FROM SchemaVersion"), before);
}

void TestUpgrade::upgradesAnOlderDatabase() {
    create();
    change(u"DROP TABLE SchemaVersion"_s);
    change(u"DROP TABLE FtpNodes"_s);
    change(u"DROP TABLE PortRemoteNodes"_s);
    change(u"ALTER TABLE Printers DROP COLUMN Trim"_s);
    change(u"ALTER TABLE Users DROP COLUMN User"_s);
    change(u"DROP INDEX PatientByPatientID"_s);
    change(u"DROP INDEX ImageBySeries"_s);
    change(u"INSERT INTO Printers (Name) VALUES ('laser')"_s);
    // --quiet changes nothing here: there is something to say.
    const auto upgraded = run({u"upgrade"_s, u"--quiet"_s});
    QCOMPARE(upgraded.err, QString());
    QCOMPARE(upgraded.status, 0);
    QStringList lines = upgraded.out.toLower().split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.takeLast(), u"dicomfdb: version 4"_s);
    QCOMPARE(lines.takeLast(), u"version 4: the server has jobs, and knows how large its files are"_s);
    QCOMPARE(lines.takeLast(), u"version 3: queries find objects by all their keys"_s);
    QCOMPARE(lines.takeLast(), u"version 2: the tables have a version"_s);
    lines.sort();
    QCOMPARE(lines,
             (QStringList{u"image: added an index for look-ups by seriesinstanceuid"_s,
                          u"made the table ftpnodes"_s, u"made the table portremotenodes"_s,
                          u"made the table schemaversion"_s, u"patient: added the unique key (patientid)"_s,
                          u"portremotenodes: added an index for look-ups by name"_s,
                          u"printers: added the column trim for text"_s,
                          u"study: added an index for look-ups by idpatient"_s,
                          u"users: added the column user for text"_s}));
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
    QCOMPARE(column("SELECT Name FROM Printers"), QStringList{u"laser"_s});
    QCOMPARE(column("SELECT User FROM Users ORDER BY User"), QStringList{u"admin"_s});
    QCOMPARE(run({u"upgrade"_s}).out, u"DicomFDB: version 4, nothing to do\n"_s);
}

void TestUpgrade::addsAnyColumnThatHasADefault_data() {
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("value");
    QTest::newRow("query time-out") << u"DicomServer"_s << u"QueryTimeout"_s << u"30"_s;
    QTest::newRow("connections") << u"Port"_s << u"MaxConnections"_s << u"10"_s;
    QTest::newRow("flag") << u"Port"_s << u"SaveCompressed"_s << u"1"_s;
    QTest::newRow("right") << u"Users"_s << u"ModTags"_s << u"0"_s;
}

void TestUpgrade::addsAnyColumnThatHasADefault() {
    QFETCH(QString, table);
    QFETCH(QString, name);
    QFETCH(QString, value);
    create();
    change(u"ALTER TABLE %1 DROP COLUMN %2"_s.arg(table, name));
    QCOMPARE(run({u"upgrade"_s}).status, 0);
    QCOMPARE(column(qPrintable(u"SELECT %2 FROM %1"_s.arg(table, name))), QStringList{value});
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
}

void TestUpgrade::refusesANewerDatabase() {
    create();
    change(u"UPDATE SchemaVersion SET Version = 5"_s);
    const auto refused = run({u"upgrade"_s});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.out, QString());
    QCOMPARE(refused.err,
             u"tessaly-db: The tables are of version 5, newer than the version 4 that this program "
             "knows\n"_s);
    QCOMPARE(column("SELECT Version FROM SchemaVersion"), QStringList{u"5"_s});
}

void TestUpgrade::makesNoTablesWhereThereAreNone_data() {
    QTest::addColumn<QString>("table");
    QTest::newRow("an empty database") << QString();
    QTest::newRow("another program's") << u"Invoices"_s;
}

void TestUpgrade::makesNoTablesWhereThereAreNone() {
    QFETCH(QString, table);
    QVERIFY(haveDatabase());
    if (!table.isEmpty())
        change(u"CREATE TABLE %1 (Number INTEGER)"_s.arg(table));
    const auto refused = run({u"upgrade"_s});
    QCOMPARE(refused.err,
             u"tessaly-db: The database has none of the tables: tessaly-db create makes them\n"_s);
    QCOMPARE(refused.out, QString());
    QCOMPARE(refused.status, 1);
    QVERIFY(!hasTables());

    if (!test::ScratchDatabase::isPostgresql())
        QVERIFY(QFile::remove(file()));  // which no new database takes the place of
    QCOMPARE(run({u"create"_s}).status, 0);
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
}

/// A column of that name, of another kind.
void TestUpgrade::saysWhatTheEngineRefuses() {
    create();
    change(u"DROP TABLE SchemaVersion"_s);
    change(u"ALTER TABLE Printers DROP COLUMN Copies"_s);
    change(u"ALTER TABLE Printers ADD COLUMN Copies VARCHAR(9)"_s);
    const auto refused = run({u"upgrade"_s});
    QCOMPARE(refused.status, 1);
    QVERIFY2(isOneLine(refused.err) && refused.err.toLower().contains(u"copies"_s), qPrintable(refused.err));
    QCOMPARE(run({u"check"_s}).out.count(u"run tessaly-db upgrade"_s), 1);  // it is what it was
}

QTEST_GUILESS_MAIN(TestUpgrade)
#include "tst_upgrade.moc"
