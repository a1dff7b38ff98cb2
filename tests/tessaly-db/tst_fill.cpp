#include <QDir>
#include <QFile>
#include <QTest>

#include "tests/tessaly-db/FillTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

/// What an upgrade makes of the rows of an archive that is older than the columns that queries need.
class TestFill : public FillTest {
    Q_OBJECT
  private slots:
    void fillsFromNamesAndFiles();
    void leavesWhatARowHas();
    void namesWhatCannotBeRead();
    void namesNoMoreThanAFew();
    void looksAgainWhenTold();
    void triesAgainWhereNothingOfTheArchiveIsThere();
    void fillsPatientsOfAnyNumber();
    void saysNothingWhenQuiet();
    void checkTellsOfOlderRows();
};

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
