#include <QDir>
#include <QTest>

#include "schema/Definitions.h"
#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

/// From a SQLite file into the engine of the test, and back.
class TestCopy : public ToolTest {
    Q_OBJECT
  private slots:
    void init() {
        ToolTest::init();
        source_ = fileSource(u"Source"_s);
    }
    void cleanup() {
        source_.reset();
        ToolTest::cleanup();
    }
    void copiesEverythingThereAndBack();
    void keepsFractionsDigitByDigit();
    void refusesADatabaseThatIsThere();
    void takesADatabaseThatLacksSomething();
    void refusesASourceThatIsNone_data();
    void refusesASourceThatIsNone();
    void mapsRootsOfPortsAndStudies();
    void saysWhatDoesNotFit_data();
    void saysWhatDoesNotFit();
    void listsEveryNumberBeyondItsType();
    void aRowThatDoesNotFitLeavesNothingBehind();
    void showsNoMoreThanTheLimit();
    void aDryRunWritesNothing();
    void isQuietWhenAsked();

  private:
    /// Of the tables that have rows: how many there were, and how many there are.
    [[nodiscard]] static QString countsOf(const QString& out);

    std::unique_ptr<FileSource> source_;
};

}  // namespace

QString TestCopy::countsOf(const QString& out) {
    QStringList counts;
    for (const QString& line : tableLines(out)) {
        const QStringList words = line.split(u' ');
        if (words.size() == 4 && words[1] != u"0"_s)
            counts += words[0] + u'=' + words[1] + u'/' + words[2];
    }
    return counts.join(u' ');
}

void TestCopy::copiesEverythingThereAndBack() {
    source_->run(u"INSERT INTO DicomNodes (Name, Store) VALUES ('Gerät \"1\"', -1), ('b''c', 0)"_s);
    source_->run(u"INSERT INTO PortRemoteNodes VALUES ('11112', 'b''c')"_s);
    source_->run(u"INSERT INTO Printers (Name, Copies) VALUES ('laser', NULL)"_s);
    source_->run(
        u"INSERT INTO Patient (ID, PatientID, Name, BirthDate, Sex) VALUES (7, 'P7', '山田^太郎', '', NULL)"_s);
    source_->run(
        u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES ('1.2', 7, 'D:\\a\\b')"_s);
    source_->run(
        u"INSERT INTO Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir) VALUES ('1.3', '1.2', "
        "'s')"_s);
    source_->run(
        u"WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<1233) INSERT INTO Image "
        "(SOPInstanceUID, SeriesInstanceUID, ImageFile) SELECT '9.'||i, '1.3', 'f'||i FROM n"_s);
    source_->release();
    const auto before = source_->fingerprint();

    const auto copied = run({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource});
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    QCOMPARE(countsOf(copied.out),
             u"DicomServer=1/1 SiteData=1/1 DicomNodes=2/2 Port=1/1 PortRemoteNodes=1/1 "
             "Printers=1/1 Users=1/1 Patient=1/1 Study=1/1 Series=1/1 Image=1234/1234"_s);
    QCOMPARE(source_->fingerprint(), before);
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
    QCOMPARE(column("SELECT Store FROM DicomNodes WHERE Name='GERÄT \"1\"' OR Name='gerät \"1\"'"),
             QStringList{u"-1"_s});
    QCOMPARE(column("SELECT StudyPath FROM Study"), QStringList{u"D:\\a\\b"_s});
    QCOMPARE(column("SELECT Name FROM Patient"), QStringList{u"山田^太郎"_s});
    QCOMPARE(column("SELECT ID FROM Patient WHERE Sex IS NULL AND BirthDate = ''"), QStringList{u"7"_s});
    QCOMPARE(column("SELECT COUNT(*) AS x FROM Printers WHERE Copies IS NULL"), QStringList{u"1"_s});
    QCOMPARE(column("SELECT Version FROM SchemaVersion"), QStringList{u"4"_s});

    addDataSource(u"Back"_s, FileSource::lines(path(u"back/DicomDB.mdb"_s)));
    const auto back = run({u"copy"_s, u"--from"_s, DataSource, u"--to"_s, u"Back"_s});
    QCOMPARE(back.err, QString());
    QCOMPARE(back.out, copied.out);  // the checksums too
    QCOMPARE(run({u"check"_s, u"--dsn"_s, u"Back"_s}).out, u"Back: ok\n"_s);
}

/// Out of a file of before, whose columns are called whole numbers.
void TestCopy::keepsFractionsDigitByDigit() {
    const auto tables = schema::definitions(schema::engine("SQLite"));
    source_->run(u"DROP TABLE Printers"_s);
    source_->run(QString::fromStdString(schema::findTable(tables, "Printers")->statement)
                     .replace(u"NUMERIC"_s, u"INTEGER"_s));
    source_->run(
        u"INSERT INTO Printers (Name, Copies, Illumination, MinDensity, MaxDensity, GridSizeDx) VALUES "
        "('laser', 0.18755, 2000, -0.00001, 3.0, 12345678.125)"_s);
    source_->release();
    QCOMPARE(run({u"check"_s, u"--dsn"_s, u"Source"_s}).out, u"Source: ok\n"_s);
    QCOMPARE(run({u"upgrade"_s, u"--dsn"_s, u"Source"_s}).out, u"Source: version 4, nothing to do\n"_s);

    const QStringList there{u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource};
    const auto dry = run(there + QStringList{u"--dry-run"_s});
    QCOMPARE(dry.err, QString());
    QCOMPARE(dry.status, 0);
    const auto copied = run(there);
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    const char* const same =
        "SELECT COUNT(*) AS x FROM Printers WHERE Copies=0.18755 AND Illumination=2000 AND "
        "MinDensity=-0.00001 AND MaxDensity=3 AND GridSizeDx=12345678.125 AND GridSizeDy IS NULL";
    QCOMPARE(column(same), QStringList{u"1"_s});
    QCOMPARE(column("SELECT Copies FROM Printers"), QStringList{u"0.18755"_s});

    addDataSource(u"Back"_s, FileSource::lines(path(u"back/DicomDB.mdb"_s)));
    const QStringList back{u"copy"_s, u"--from"_s, DataSource, u"--to"_s, u"Back"_s};
    if (test::ScratchDatabase::isPostgresql()) {  // which keeps more digits than a file can
        change(u"UPDATE Printers SET Copies=0.1234567890123456"_s);
        const auto refused = run(back + QStringList{u"--dry-run"_s});
        QCOMPARE(tableLines(refused.out).first(),
                 u"Printers laser: Copies has more than 15 digits: \"0.1234567890123456\""_s);
        QCOMPARE(refused.status, 1);
        change(u"UPDATE Printers SET Copies=0.18755000"_s);
    }
    const auto returned = run(back);
    QCOMPARE(returned.err, QString());
    QCOMPARE(returned.out, copied.out);  // the checksums too
    QCOMPARE(column(same, u"Back"_s), QStringList{u"1"_s});
}

void TestCopy::refusesADatabaseThatIsThere() {
    create();
    const auto users = column("SELECT UserPwd FROM Users");
    for (const QStringList& more : {QStringList{}, QStringList{u"--dry-run"_s}}) {
        const auto refused =
            run(QStringList{u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource} + more);
        QCOMPARE(refused.status, 1);
        QCOMPARE(refused.out, QString());
        QVERIFY2(isOneLine(refused.err) && refused.err.endsWith(u" already: it is left as it is\n"_s),
                 qPrintable(refused.err));
    }
    QCOMPARE(column("SELECT UserPwd FROM Users"), users);
}

void TestCopy::takesADatabaseThatLacksSomething() {
    source_->run(u"DROP TABLE SchemaVersion"_s);
    source_->run(u"DROP TABLE FtpNodes"_s);
    source_->run(u"ALTER TABLE Users DROP COLUMN User"_s);
    source_->run(u"ALTER TABLE DicomServer DROP COLUMN QueryTimeout"_s);
    source_->run(u"ALTER TABLE Port ADD COLUMN Remark VARCHAR(9)"_s);
    const auto copied = run({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource});
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    const auto lines = tableLines(copied.out);
    QCOMPARE(lines.mid(13),
             (QStringList{u"DicomServer: the source has no column QueryTimeout"_s,
                          u"Older rows lack what queries need of them: an upgrade of the copy fills them"_s,
                          u"The source has no table FtpNodes"_s,
                          u"Port: the source's column Remark is left out"_s}));
    QCOMPARE(run({u"check"_s}).out,
             u"Older rows of the archive lack what queries need of them: run tessaly-db upgrade\n"_s);
    QCOMPARE(run({u"upgrade"_s}).status, 0);
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
    QCOMPARE(column("SELECT QueryTimeout FROM DicomServer"), QStringList{u"30"_s});
    QCOMPARE(column("SELECT User FROM Users"), QStringList{u"admin"_s});
}

void TestCopy::refusesASourceThatIsNone_data() {
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("why");
    QTest::newRow("no data source") << QString() << u"Other"_s << u"ODBC knows no data source Other"_s;
    QTest::newRow("no table") << u"none"_s << u"Source"_s
                              << u"The data source Source has none of the tables"_s;
    QTest::newRow("newer") << u"newer"_s << u"Source"_s
                           << u"The tables of Source are of version 99, newer than the version 4 that this "
                              "program knows"_s;
}

void TestCopy::refusesASourceThatIsNone() {
    QFETCH(QString, change);
    QFETCH(QString, from);
    QFETCH(QString, why);
    if (change == u"none"_s)
        source_->dropTables();
    if (change == u"newer"_s)
        source_->run(u"UPDATE SchemaVersion SET Version = 99"_s);
    const auto refused = run({u"copy"_s, u"--from"_s, from, u"--to"_s, DataSource});
    QCOMPARE(refused.err, u"tessaly-db: %1\n"_s.arg(why));
    QCOMPARE(refused.out, QString());
    QCOMPARE(refused.status, 1);
    QVERIFY(!hasTables());
}

void TestCopy::mapsRootsOfPortsAndStudies() {
    source_->run(u"UPDATE Port SET Root = 'D:\\Images'"_s);
    source_->run(
        u"INSERT INTO Port (Port, AETitle, Root) VALUES ('2', 'x', 'E:\\'), ('3', 'y', '/mnt/old')"_s);
    source_->run(
        u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES "
        "('1', 1, 'd:\\images\\2024\\a'), ('2', 1, 'D:\\Images2\\b'), ('3', 1, 'D:\\Images\\CT\\c'), "
        "('4', 1, '/mnt/old\\x'), ('5', 1, '/MNT/old\\x')"_s);
    const auto copied = run({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource, u"--map"_s,
                             u"D:\\Images=/srv/images"_s, u"--map"_s, u"D:\\Images\\CT=/ct"_s, u"--map"_s,
                             u"E:\\=/e"_s, u"--map"_s, u"/mnt/old=/mnt/a=b"_s});
    QCOMPARE(copied.err, QString());
    QCOMPARE(column("SELECT Root FROM Port ORDER BY Port"),
             (QStringList{u"/srv/images"_s, u"/e"_s, u"/mnt/a=b"_s}));
    QCOMPARE(column("SELECT StudyPath FROM Study ORDER BY StudyInstanceUID"),
             (QStringList{u"/srv/images\\2024\\a"_s, u"D:\\Images2\\b"_s, u"/ct\\c"_s, u"/mnt/a=b\\x"_s,
                          u"/MNT/old\\x"_s}));
}

void TestCopy::saysWhatDoesNotFit_data() {
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("everywhere");  // not only where texts have bounds
    const auto row = [](const char* name, const QString& change, const QString& line,
                        bool everywhere = true) { QTest::newRow(name) << change << line << everywhere; };
    row("long", u"UPDATE SiteData SET Organization = '%1'"_s.arg(QString(65, u'ü')),
        u"SiteData: Organization is too long: 65 of 64 characters"_s, false);
    row("blanks count", u"UPDATE SiteData SET Organization = '%1'"_s.arg(QString(70, u' ')),
        u"SiteData: Organization is too long: 70 of 64 characters"_s, false);
    row("no number", u"UPDATE Port SET MaxConnections = 'ten'"_s,
        u"Port 11112: MaxConnections is not a whole number: \"ten\""_s);
    row("a fraction", u"UPDATE Port SET MaxConnections = 1.5"_s,
        u"Port 11112: MaxConnections is not a whole number: \"1.5\""_s);
    row("no number that may be a fraction", u"INSERT INTO Printers (Name, Copies) VALUES ('x', '1.2.3')"_s,
        u"Printers x: Copies is not a number: \"1.2.3\""_s);
    row("too great", u"UPDATE Port SET MaxConnections = 3000000000"_s,
        u"Port 11112: MaxConnections is out of range: 3000000000 is not within -2147483648 to 2147483647"_s,
        false);
    row("no text", u"INSERT INTO FtpNodes (Name, Host) VALUES ('x', CAST(x'FF41' AS TEXT))"_s,
        u"FtpNodes x: Host is not valid UTF-8"_s);
    row("nothing",
        u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) VALUES ('1', '2', NULL)"_s,
        u"Image 1: ImageFile is empty"_s);
    row("duplicate without case", u"INSERT INTO FtpNodes (Name) VALUES ('PACS'), ('other'), ('pacs')"_s,
        u"FtpNodes pacs: stands there twice, upper and lower case being the same"_s);
    row("duplicate of a second key", u"INSERT INTO Patient (ID, PatientID) VALUES (1, 'P'), (2, 'P')"_s,
        u"Patient 2: stands there twice, upper and lower case being the same"_s);
}

void TestCopy::saysWhatDoesNotFit() {
    QFETCH(QString, change);
    QFETCH(QString, line);
    QFETCH(bool, everywhere);
    source_->loosen();
    source_->run(change);
    const bool fits = !everywhere && !test::ScratchDatabase::isPostgresql();
    const QStringList copying{u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource};
    const auto dry = run(copying + QStringList{u"--dry-run"_s});
    QCOMPARE(dry.err, QString());
    QCOMPARE(dry.status, fits ? 0 : 1);
    QCOMPARE(dry.out.startsWith(line + u'\n'), !fits);
    QCOMPARE(dry.out.endsWith(u"1 rows do not fit\n"_s), !fits);
    QVERIFY(!hasTables());

    const auto copied = run(copying);
    QCOMPARE(copied.status, fits ? 0 : 1);
    QCOMPARE(hasTables(), fits);
    QVERIFY2(fits || (isOneLine(copied.err) && copied.out.isEmpty()), qPrintable(copied.err + copied.out));
}

void TestCopy::listsEveryNumberBeyondItsType() {
    source_->run(
        u"INSERT INTO DicomNodes (Name, Store, Query) VALUES ('a', 32767, -32768), ('b', 32768, 0), "
        "('c', 1, -32769)"_s);
    source_->release();
    const QStringList copying{u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource};
    const auto dry = run(copying + QStringList{u"--dry-run"_s});
    const auto copied = run(copying);
    QCOMPARE(dry.err, QString());
    if (!test::ScratchDatabase::isPostgresql()) {  // it keeps to no type's bounds
        QCOMPARE(dry.status, 0);
        QCOMPARE(copied.status, 0);
        QCOMPARE(column("SELECT Store FROM DicomNodes ORDER BY Name"),
                 (QStringList{u"32767"_s, u"32768"_s, u"1"_s}));
        return;
    }
    QCOMPARE(tableLines(dry.out).mid(0, 3),
             (QStringList{u"DicomNodes b: Store is out of range: 32768 is not within -32768 to 32767"_s,
                          u"DicomNodes c: Query is out of range: -32769 is not within -32768 to 32767"_s,
                          u"Table From"_s}));
    QCOMPARE(tableLines(dry.out).last(), u"2 rows do not fit"_s);
    QCOMPARE(dry.status, 1);
    QCOMPARE(copied.err,
             u"tessaly-db: DicomNodes b: Store is out of range: 32768 is not within -32768 to 32767; nothing "
             "was written, and --dry-run lists all that does not fit\n"_s);
    QCOMPARE(copied.status, 1);
    QVERIFY(!hasTables());
}

void TestCopy::aRowThatDoesNotFitLeavesNothingBehind() {
    source_->loosen();
    source_->run(
        u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID) VALUES ('1', '2')"_s);  // in the last of the
                                                                                        // tables
    const auto refused = run({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource});
    QCOMPARE(refused.err,
             u"tessaly-db: Image 1: ImageFile is empty; nothing was written, and --dry-run lists all "
             "that does not fit\n"_s);
    QVERIFY(!hasTables());
    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::Files | QDir::Hidden), QStringList());
}

void TestCopy::showsNoMoreThanTheLimit() {
    source_->loosen();
    source_->run(
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<250) "
        "INSERT INTO DicomNodes (Name, Store) SELECT 'n'||i, 'x' FROM n"_s);
    const QStringList dry{u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource, u"--dry-run"_s};
    const auto few = tableLines(run(dry + QStringList{u"--limit"_s, u"2"_s}).out);
    QCOMPARE(few.mid(0, 4), (QStringList{u"DicomNodes n1: Store is not a whole number: \"x\""_s,
                                         u"DicomNodes n2: Store is not a whole number: \"x\""_s,
                                         u"... and 248 more"_s, u"Table From"_s}));
    QCOMPARE(few.last(), u"250 rows do not fit"_s);
    const auto none = tableLines(run(dry + QStringList{u"--limit"_s, u"0"_s, u"--quiet"_s}).out);
    QCOMPARE(none, QStringList{u"... and 250 more"_s});
    QCOMPARE(tableLines(run(dry).out).mid(20, 1), QStringList{u"... and 230 more"_s});
}

void TestCopy::aDryRunWritesNothing() {
    const auto dry = run({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource, u"--dry-run"_s});
    QCOMPARE(dry.err, QString());
    QCOMPARE(dry.status, 0);
    QCOMPARE(tableLines(dry.out).mid(0, 3),
             (QStringList{u"Table From"_s, u"DicomServer 1"_s, u"SiteData 1"_s}));
    QVERIFY(!hasTables());
    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::Files | QDir::Hidden), QStringList());
}

void TestCopy::isQuietWhenAsked() {
    const auto copied = run({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource, u"--quiet"_s});
    QCOMPARE(copied.out, QString());
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    QVERIFY(hasTables());
}

QTEST_GUILESS_MAIN(TestCopy)
#include "tst_copy.moc"
