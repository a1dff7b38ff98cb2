#include <dcmtk/dcmdata/dcdeftag.h>

#include <QDir>
#include <QFile>
#include <QTest>
#include <array>
#include <atomic>
#include <thread>

#include "db/Query.h"
#include "db/Transaction.h"
#include "dicom/data/NameFolding.h"
#include "tessalyd/store/ArchiveSession.h"
#include "tests/tessaly-db/Terminal.h"
#include "tests/tessaly-db/ToolTest.h"
#include "tests/tessalyd/Objects.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

constexpr auto ClassUid = "1.2.840.10008.5.1.4.1.1.2";

/// What an upgrade makes of the rows of an archive that is older than the columns that queries need.
class TestFill : public ToolTest {
    Q_OBJECT
  private slots:
    void init();
    void fillsFromNamesAndFiles();
    void leavesWhatARowHas();
    void namesWhatCannotBeRead();
    void namesNoMoreThanAFew();
    void looksAgainWhenTold();
    void triesAgainWhereNothingOfTheArchiveIsThere();
    void fillsPatientsOfAnyNumber();
    void saysNothingWhenQuiet();
    void goesOnWhereItWasBrokenOff();
    void runsWhileAServerStores();
    void checkTellsOfOlderRows();

  private:
    /// Today's tables as version 2 had them, with nothing in the archive.
    void makeOlder();
    /// The rows of one object in a study and a series of their own, as an older server left them; writeRows()
    /// writes them.
    void addRows(int number, const QString& file);
    /// The same, with the file.
    void addObject(int number);
    void writeRows();
    [[nodiscard]] QString imageFolder() const { return path(u"images/1.2.3"_s); }
    [[nodiscard]] static QString row(const QString& columns, const QString& table, const QString& where);

    QStringList rows_;
};

QString uid(int number) {
    return u"1.2.3.%1"_s.arg(100'000 + number);
}

}  // namespace

void TestFill::init() {
    ToolTest::init();
    create();
    QVERIFY(QDir{}.mkpath(imageFolder()));
}

void TestFill::makeOlder() {
    for (const char* index : {"PatientByName", "PatientByIdeographicName", "PatientByPhoneticName",
                              "PatientByBirthDate", "StudyByPatient", "StudyByDate", "StudyByAccessionNumber",
                              "StudyByStudyID", "StudyByDescription", "ImageBySeries"})
        change(u"DROP INDEX "_s + QString::fromLatin1(index));
    using Later = std::pair<const char*, QStringList>;
    const std::array later{
        Later{"Patient", {u"NameAlphabetic"_s, u"NameIdeographic"_s, u"NamePhonetic"_s}},
        Later{"Study", {u"ReferringPhysicianName"_s}},
        Later{"Series", {u"SeriesDate"_s, u"SeriesTime"_s, u"BodyPartExamined"_s, u"ProtocolName"_s}},
        Later{"Image",
              {u"NumberInSeries"_s, u"ContentDate"_s, u"ContentTime"_s, u"PixelRows"_s, u"PixelColumns"_s,
               u"NumberOfFrames"_s}},
        Later{"SchemaVersion", {u"FilledTo"_s}}};
    for (const auto& [table, columns] : later)
        for (const auto& column : columns)
            change(u"ALTER TABLE %1 DROP COLUMN %2"_s.arg(QString::fromLatin1(table), column));
    change(u"CREATE INDEX StudyByPatient ON Study (IDPatient)"_s);
    change(u"CREATE INDEX ImageBySeries ON Image (SeriesInstanceUID)"_s);
    change(u"UPDATE SchemaVersion SET Version = 2"_s);
}

void TestFill::addRows(int number, const QString& file) {
    const QString id = uid(number);
    rows_ +=
        u"INSERT INTO Patient (ID, PatientID, Name, BirthDate, Sex) VALUES (%1, 'P%1', 'Müller^%1', '', '')"_s
            .arg(number);
    rows_ +=
        u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath, StudyID, StudyDate, StudyTime, "
        "AccessionNumber, Description) VALUES ('%1.1', %2, '%3', 'S', '20200101', '10', 'A', 'D')"_s.arg(
            id, QString::number(number), path(u"images"_s));
    rows_ +=
        u"INSERT INTO Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir, Modality, SeriesNumber, "
        "Description) VALUES ('%1.2', '%1.1', '1.2.3', 'CT', '1', 'D')"_s.arg(id);
    rows_ +=
        u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, TransferSyntaxUID, "
        "InstanceNumber) VALUES ('%1', '%1.2', '%2', '%3', '1.2.840.10008.1.2.1', '%4')"_s.arg(
            id, file, QString::fromLatin1(ClassUid), QString::number(number));
}

void TestFill::writeRows() {
    db::Connection connection;
    connection.setConnectString("DSN=DicomFDB");
    connection.establish();
    db::Transaction transaction{connection};
    for (const QString& row : std::as_const(rows_))
        db::execute(connection, row.toStdString());
    transaction.commit();
    rows_.clear();
}

void TestFill::addObject(int number) {
    const std::string id = uid(number).toStdString();
    const QString name = uid(number) + u".dcm"_s;
    addRows(number, name);
    const auto object = test::makeObject(
        {.study = id + ".1", .series = id + ".2", .instance = id, .side = 16, .seed = number});
    DcmDataset& set = *object->getDataset();
    for (const auto& [tag, value] : {std::pair{DCM_ReferringPhysicianName, "Ref^A"},
                                     {DCM_SeriesDate, "2021.02.03"},
                                     {DCM_SeriesTime, "101112"},
                                     {DCM_BodyPartExamined, "CHEST"},
                                     {DCM_ProtocolName, "Routine"},
                                     {DCM_ContentDate, "20210204"},
                                     {DCM_ContentTime, "111213"},
                                     {DCM_NumberOfFrames, "1"}})
        QVERIFY(set.putAndInsertString(tag, value).good());
    QVERIFY(object->saveFile(qPrintable(imageFolder() + u'/' + name), EXS_LittleEndianExplicit).good());
}

QString TestFill::row(const QString& columns, const QString& table, const QString& where) {
    QStringList values;
    for (const QString& name : columns.split(u", "_s))
        values += column(qPrintable(u"SELECT %1 FROM %2 WHERE %3"_s.arg(name, table, where))).join(u',');
    return values.join(u'|');
}

void TestFill::fillsFromNamesAndFiles() {
    makeOlder();
    for (int number = 1; number <= 450; ++number)  // several batches
        addObject(number);
    writeRows();
    const auto upgraded = run({u"upgrade"_s});
    QCOMPARE(upgraded.err, QString());
    QCOMPARE(upgraded.status, 0);
    QVERIFY2(
        upgraded.out.endsWith(u"Older rows: filled 450 patients and 450 images\nDicomFDB: version 4\n"_s),
        qPrintable(upgraded.out));
    QCOMPARE(column("SELECT NameAlphabetic FROM Patient WHERE ID=7"), QStringList{u"muller^7"_s});
    QCOMPARE(column("SELECT COUNT(*) AS x FROM Patient WHERE NameAlphabetic LIKE 'muller^%' "
                    "AND NameIdeographic='' AND NamePhonetic=''"),
             QStringList{u"450"_s});
    QCOMPARE(row(u"ReferringPhysicianName, StudyDate, Description"_s, u"Study"_s,
                 u"StudyInstanceUID='%1.1'"_s.arg(uid(7))),
             u"Ref^A|20200101|D"_s);
    QCOMPARE(row(u"SeriesDate, SeriesTime, BodyPartExamined, ProtocolName, Description"_s, u"Series"_s,
                 u"SeriesInstanceUID='%1.2'"_s.arg(uid(450))),
             u"20210203|101112|CHEST|Routine|D"_s);
    QCOMPARE(row(u"NumberInSeries, ContentDate, ContentTime, PixelRows, PixelColumns, NumberOfFrames"_s,
                 u"Image"_s, u"SOPInstanceUID='%1'"_s.arg(uid(223))),
             u"223|20210204|111213|16|16|1"_s);
    QCOMPARE(column("SELECT COUNT(*) AS x FROM Image WHERE ContentDate='20210204'"), QStringList{u"450"_s});
    QCOMPARE(column("SELECT COUNT(*) AS x FROM Series WHERE ProtocolName='Routine'"), QStringList{u"450"_s});
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
    QCOMPARE(run({u"upgrade"_s}).out, u"DicomFDB: version 4, nothing to do\n"_s);
}

void TestFill::leavesWhatARowHas() {
    makeOlder();
    addObject(1);
    writeRows();
    QCOMPARE(run({u"upgrade"_s}).status, 0);
    // As a server that has stored it again, with other contents, leaves it; and one column to be filled
    // still.
    change(
        u"UPDATE Image SET ContentDate='', ContentTime='2359', PixelRows=5, NumberInSeries=9, "
        "SOPClassUID=NULL"_s);
    change(u"UPDATE Series SET ProtocolName='Own'"_s);
    change(u"UPDATE Patient SET NameAlphabetic='own'"_s);
    const auto again = run({u"upgrade"_s, u"--refill"_s});
    QCOMPARE(again.out, u"Older rows: filled 0 patients and 1 images\nDicomFDB: version 4\n"_s);
    QCOMPARE(row(u"ContentDate, ContentTime, PixelRows, NumberInSeries, SOPClassUID"_s, u"Image"_s, u"1=1"_s),
             u"|2359|5|9|%1"_s.arg(QString::fromLatin1(ClassUid)));
    QCOMPARE(column("SELECT ProtocolName FROM Series"), QStringList{u"Own"_s});
    QCOMPARE(column("SELECT NameAlphabetic FROM Patient"), QStringList{u"own"_s});
}

void TestFill::namesWhatCannotBeRead() {
    makeOlder();
    addObject(1);
    addRows(2, u"missing.dcm"_s);
    addRows(3, uid(1) + u".dcm"_s);
    addRows(4, u"text.dcm"_s);
    QFile text{imageFolder() + u"/text.dcm"_s};
    QVERIFY(text.open(QIODevice::WriteOnly) && text.write("no object") > 0);
    text.close();
    addObject(5);
    writeRows();
    const auto upgraded = run({u"upgrade"_s});
    QCOMPARE(upgraded.status, 0);
    QCOMPARE(upgraded.out.split(u'\n').filter(imageFolder()),
             (QStringList{imageFolder() + u"/missing.dcm: No such file or directory"_s,
                          imageFolder() + u"/"_s + uid(1) + u".dcm: the file is another object's"_s,
                          imageFolder() + u"/text.dcm: no DICOM file"_s}));
    QVERIFY2(upgraded.out.contains(u"filled 5 patients and 2 images; 3 files could not be read\n"_s),
             qPrintable(upgraded.out));
    QCOMPARE(column("SELECT SOPInstanceUID FROM Image WHERE ContentDate IS NULL ORDER BY SOPInstanceUID"),
             (QStringList{uid(2), uid(3), uid(4)}));
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
}

void TestFill::namesNoMoreThanAFew() {
    makeOlder();
    for (int number = 1; number <= 23; ++number)
        addRows(number, u"missing%1.dcm"_s.arg(number));
    writeRows();
    const auto upgraded = run({u"upgrade"_s});
    QCOMPARE(upgraded.out.count(imageFolder()), 20);
    QVERIFY2(
        upgraded.out.contains(u"... and 3 more\nOlder rows: filled 23 patients and 0 images; 23 files"_s),
        qPrintable(upgraded.out));
}

void TestFill::looksAgainWhenTold() {
    makeOlder();
    addObject(1);
    addObject(2);
    const QString file = imageFolder() + u'/' + uid(1) + u".dcm"_s;
    QVERIFY(QFile::rename(file, file + u".away"_s));
    writeRows();
    QVERIFY(run({u"upgrade"_s}).out.contains(u"1 files could not be read"_s));
    QVERIFY(QFile::rename(file + u".away"_s, file));
    QCOMPARE(run({u"upgrade"_s}).out, u"DicomFDB: version 4, nothing to do\n"_s);
    QCOMPARE(column("SELECT COUNT(*) AS x FROM Image WHERE ContentDate IS NULL"), QStringList{u"1"_s});
    QVERIFY(
        run({u"upgrade"_s, u"--refill"_s}).out.startsWith(u"Older rows: filled 0 patients and 1 images\n"_s));
    QCOMPARE(column("SELECT ContentDate FROM Image"), (QStringList{u"20210204"_s, u"20210204"_s}));
}

/// An archive that is not mounted, and is at the next start.
void TestFill::triesAgainWhereNothingOfTheArchiveIsThere() {
    constexpr int Images = 250;  // more than a batch
    const QString again =
        u"is the archive's disk there? The next upgrade tries again\nDicomFDB: version 4\n"_s;
    makeOlder();
    for (int number = 1; number <= Images; ++number)
        addObject(number);
    writeRows();
    const QString images = path(u"images"_s);
    QVERIFY(QDir{}.rename(images, images + u".away"_s));
    const auto first = run({u"upgrade"_s});
    QCOMPARE(first.status, 0);
    QVERIFY2(first.out.contains(u"filled 250 patients and 0 images; 250 files could not be read\n"_s),
             qPrintable(first.out));
    QVERIFY2(first.out.endsWith(again), qPrintable(first.out));
    QCOMPARE(run({u"check"_s}).status, 1);
    QVERIFY(run({u"upgrade"_s, u"--refill"_s}).out.endsWith(again));
    QVERIFY(QDir{}.rename(images + u".away"_s, images));
    QCOMPARE(run({u"upgrade"_s}).out,
             u"Older rows: filled 0 patients and 250 images\nDicomFDB: version 4\n"_s);
    QCOMPARE(run({u"upgrade"_s}).out, u"DicomFDB: version 4, nothing to do\n"_s);
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);

    // What has once been given up is tried when told, and by nobody else.
    change(u"UPDATE Image SET ContentDate=NULL WHERE InstanceNumber='7'"_s);
    QVERIFY(QDir{}.rename(images, images + u".away"_s));
    QVERIFY(
        run({u"upgrade"_s, u"--refill"_s}).out.contains(u"0 images; 1 files could not be read\nDicomFDB"_s));
    QCOMPARE(run({u"upgrade"_s}).out, u"DicomFDB: version 4, nothing to do\n"_s);
}

void TestFill::fillsPatientsOfAnyNumber() {
    makeOlder();
    addRows(-7, u"missing.dcm"_s);
    addRows(0, u"missing.dcm"_s);
    writeRows();
    change(
        u"INSERT INTO Patient (ID, PatientID, Name) VALUES (-9223372036854775807, 'first', 'First'), "
        "(9223372036854775807, 'last', 'Last')"_s);
    QVERIFY(run({u"upgrade"_s}).out.contains(u"filled 4 patients and 0 images"_s));
    QCOMPARE(column("SELECT NameAlphabetic FROM Patient ORDER BY ID"),
             (QStringList{u"first"_s, u"muller^-7"_s, u"muller^0"_s, u"last"_s}));
}

void TestFill::saysNothingWhenQuiet() {
    makeOlder();
    addRows(1, u"missing.dcm"_s);
    writeRows();
    QCOMPARE(run({u"upgrade"_s}).status, 0);
    const auto quiet = run({u"upgrade"_s, u"--refill"_s, u"--quiet"_s});
    QCOMPARE(quiet.status, 0);
    QCOMPARE(quiet.out + quiet.err, QString());
}

void TestFill::goesOnWhereItWasBrokenOff() {
    constexpr int Images = 20'000;
    makeOlder();
    addObject(1);
    // Each of them costs the reading of a file, which is another object's.
    for (int number = 2; number <= Images; ++number)
        rows_ +=
            u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) VALUES "
            "('%1', '%2.2', '%2.dcm')"_s.arg(uid(number), uid(1));
    writeRows();

    Terminal filling(TESSALY_DB, {u"upgrade"_s});
    QVERIFY2(filling.waitFor("1% "), filling.screen().right(300).constData());
    QVERIFY(filling.screen().contains(" images, older rows are filled"));
    filling.type("\x03");
    QCOMPARE(filling.finish(), 1);
    QVERIFY2(filling.screen().endsWith(
                 "tessaly-db: Broken off: what is filled stays, and the next upgrade goes on\r\n"),
             filling.screen().right(300).constData());
    QCOMPARE(column("SELECT NameAlphabetic FROM Patient"), QStringList{u"muller^1"_s});
    const auto mark = column("SELECT FilledTo FROM SchemaVersion");
    QVERIFY2(mark.size() == 1 && mark.first().startsWith(u"1.2.3."_s), qPrintable(mark.join(u',')));
    const QString left =
        column(qPrintable(u"SELECT COUNT(*) AS x FROM Image WHERE SOPInstanceUID>'%1'"_s.arg(mark.first())))
            .first();
    QVERIFY2(left.toInt() > 0 && left.toInt() < Images, qPrintable(left));

    const auto rest = run({u"upgrade"_s});
    QCOMPARE(rest.status, 0);
    QVERIFY2(rest.out.contains(u"filled 0 patients and 0 images; %1 files could not be read"_s.arg(left)),
             qPrintable(rest.out.right(300)));
    QCOMPARE(run({u"upgrade"_s}).out, u"DicomFDB: version 4, nothing to do\n"_s);
}

void TestFill::runsWhileAServerStores() {
    makeOlder();
    constexpr int Objects = 600;
    for (int number = 1; number <= Objects; ++number)
        addObject(number);
    writeRows();
    QCOMPARE(run({u"upgrade"_s, u"--quiet"_s}).status, 0);
    change(u"UPDATE Image SET ContentDate=NULL"_s);
    change(u"UPDATE Series SET ProtocolName=NULL"_s);
    change(u"UPDATE Patient SET NameAlphabetic=NULL"_s);

    std::atomic<bool> stop = false;
    std::atomic<int> stored = 0;
    std::string fault;
    std::thread server{[&] {
        try {
            tessalyd::ArchiveSession session{std::chrono::seconds{30}};
            while (!stop) {
                const int number = stored % Objects + 1;
                const std::string id = uid(number).toStdString();
                tessalyd::ObjectHeader header{.patientId = u"P%1"_s.arg(number).toStdString(),
                                              .patientName = "Own^Name",
                                              .studyInstanceUid = id + ".1",
                                              .seriesInstanceUid = id + ".2",
                                              .protocolName = "Own",
                                              .sopInstanceUid = id,
                                              .contentDate = "20250101"};
                header.nameGroups = dicom::foldedGroups(header.patientName);
                session.record(header, {.studyPath = path(u"images"_s).toStdString(),
                                        .seriesDir = "1.2.3",
                                        .imageFile = id + ".dcm"});
                ++stored;
            }
        } catch (const std::exception& error) {
            fault = error.what();
        }
    }};
    while (stored < 100 && fault.empty())
        std::this_thread::yield();
    const auto filled = run({u"upgrade"_s, u"--refill"_s});
    const int storedByThen = stored;
    while (stored < storedByThen + 10 && fault.empty())
        std::this_thread::yield();
    stop = true;
    server.join();
    QCOMPARE(QString::fromStdString(fault), QString());
    QCOMPARE(filled.err, QString());
    QCOMPARE(filled.status, 0);
    const auto count = [](const char* table, const char* where) {
        return column(qPrintable(u"SELECT COUNT(*) AS x FROM %1 WHERE %2"_s.arg(QString::fromLatin1(table),
                                                                                QString::fromLatin1(where))))
            .first()
            .toInt();
    };
    const int own = std::min<int>(stored, Objects);
    QCOMPARE(count("Image", "ContentDate='20250101'"), own);
    QCOMPARE(count("Series", "ProtocolName='Own'"), own);
    QCOMPARE(count("Patient", "NameAlphabetic='own^name'"), own);
    QCOMPARE(count("Image", "ContentDate='20210204'"), Objects - own);
    QCOMPARE(count("Series", "ProtocolName='Routine'"), Objects - own);
    QCOMPARE(count("Patient", "NameAlphabetic LIKE 'muller^%'"), Objects - own);
}

void TestFill::checkTellsOfOlderRows() {
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
    change(u"UPDATE SchemaVersion SET FilledTo='1.2.3'"_s);
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.out,
             u"Older rows of the archive lack what queries need of them: run tessaly-db upgrade\n"_s);
    QCOMPARE(checked.status, 1);
}

QTEST_GUILESS_MAIN(TestFill)
#include "tst_fill.moc"
