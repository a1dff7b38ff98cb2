#include <dcmtk/dcmdata/dcdeftag.h>

#include <QRegularExpression>
#include <QTest>

#include "tests/tessalyd/StockedArchive.h"
#include "tests/tessalyd/TagNumber.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// What the tables answer: every case is asked with the help of the indexes and without it, and both have to
/// say the same.
class SearchTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void studiesAreFound_data();
    void studiesAreFound();
    void allKeysTogetherChoose();
    void listsOfAnyLengthAreFound_data();
    void listsOfAnyLengthAreFound();
    void aListThatRepeatsAUidFindsItOnce();
    void aNameIsFoundOnceWhateverGroupsItMatches();
    void relationalQueriesReachThroughTheLevels_data();
    void relationalQueriesReachThroughTheLevels();
    void datesAndTimesAreOneWhereThatIsAgreed();
    void namesComeInOrderAndImagesByNumber();
    void countersAreExact_data();
    void countersAreExact();
    void countersFollowReplacedMovedAndRemovedObjects();
    void rowsWithoutTheServersColumnsAreStillFoundByOthers();

  private:
    QString counted(const char* level, const char* study, const DcmTagKey& counter);

    /// Another archive, without anything in it; the next test gets the usual one again.
    StockedArchive& empty() {
        archive_.reset();  // one at a time: a data source has one meaning in a process
        archive_ = std::make_unique<StockedArchive>();
        isUsual_ = false;
        return *archive_;
    }

    std::unique_ptr<StockedArchive> archive_;
    bool isUsual_ = false;
};

void SearchTest::init() {
    if (isUsual_)
        return;
    empty();
    isUsual_ = true;
    const auto store = [this](const char* id, const char* name, const char* birth, const char* sex,
                              const char* date, const char* time, const char* accession,
                              const char* description, const char* referrer, const char* modality) {
        ObjectHeader header{.patientId = id,
                            .patientName = name,
                            .birthDate = birth,
                            .sex = sex,
                            .studyId = std::string{"S"} + id,
                            .studyDate = date,
                            .studyTime = time,
                            .accessionNumber = accession,
                            .studyDescription = description,
                            .referringPhysicianName = referrer,
                            .modality = modality,
                            .seriesNumber = "1",
                            .instanceNumber = "1"};
        archive_->store(std::move(header));
    };
    store("1", "DOE^JOHN", "19700101", "M", "20240101", "101500", "A1", "CT Thorax", "Ref^A", "CT");
    store("2", "Doe^Jane^^", "19710101", "F", "20240102", "1015", "A2", "CT 100%", "Réf^A", "CT");
    store("3", "Müller^Jürgen", "", "M", "20240103", "120000.5", "A[3]", "MR a_b", "", "MR");
    store("4", "Yamada^Tarou=山田^太郎=やまだ^たろう", "19800101", "", "20240201", "", "A%4", "o'neil",
          "Ref^B=山^田", "US");
    store("5", "", "19800101", "O", "", "235959", "", "", "", "SR");
    store("6", "Doering^X", "19700101", "F", "20231231", "000000", "a1", "a/b\\c", "REF^A", "CT");
}

void SearchTest::studiesAreFound_data() {
    QTest::addColumn<quint32>("tag");
    QTest::addColumn<QString>("asked");
    QTest::addColumn<QString>("patients");
    const auto row = [](const DcmTagKey& tag, const char* asked, const char* patients) {
        const QueryKey& key = *findQueryKey(tag);
        QTest::addRow("%s '%s'", key.name.data(), asked)
            << tagNumber(tag) << QString::fromUtf8(asked) << QString::fromLatin1(patients);
    };
    row(DCM_PatientName, "", "1 2 3 4 5 6");
    row(DCM_PatientName, "*", "1 2 3 4 5 6");
    row(DCM_PatientName, "?*", "1 2 3 4 6");
    row(DCM_PatientName, "DOE*", "1 2 6");
    row(DCM_PatientName, "doe^*", "1 2");
    row(DCM_PatientName, "DOE^JANE", "2");
    row(DCM_PatientName, "*J*", "1 2 3");
    row(DCM_PatientName, "MULLER*", "3");
    row(DCM_PatientName, "müller^JÜRGEN^^^", "3");
    row(DCM_PatientName, "山田*", "4");
    row(DCM_PatientName, "=山田^太郎", "4");
    row(DCM_PatientName, "*=*=やまだ*", "4");
    row(DCM_PatientName, "Doe%", "");
    row(DCM_PatientName, "D_E*", "");
    row(DCM_PatientID, "1", "1");
    row(DCM_PatientID, " 1 ", "1");
    row(DCM_PatientID, "?", "1 2 3 4 5 6");
    row(DCM_PatientBirthDate, "19700101", "1 6");
    row(DCM_PatientBirthDate, "19700101-19711231", "1 2 6");
    row(DCM_PatientBirthDate, "-19700101", "1 6");
    row(DCM_PatientBirthDate, "19800101-", "4 5");
    row(DCM_PatientSex, "F", "2 6");
    row(DCM_PatientSex, "F\\O", "2 5 6");
    row(DCM_StudyInstanceUID, "1.2.1", "1");
    row(DCM_StudyInstanceUID, "1.2.6\\1.2.3\\1.2.99", "3 6");
    row(DCM_StudyInstanceUID, "1.2.*", "");
    row(DCM_StudyDate, "20240101", "1");
    row(DCM_StudyDate, "20240101-20240103", "1 2 3");
    row(DCM_StudyDate, "-20240101", "1 6");
    row(DCM_StudyDate, "20240103-", "3 4");
    row(DCM_StudyDate, "2024*", "");
    row(DCM_StudyTime, "1015", "1 2");
    row(DCM_StudyTime, "10-12", "1 2 3");
    row(DCM_StudyTime, "120000.5", "3");
    row(DCM_StudyTime, "-09", "6");
    row(DCM_StudyTime, "-10", "1 2 6");
    row(DCM_AccessionNumber, "A1", "1");
    row(DCM_AccessionNumber, "a1", "6");
    row(DCM_AccessionNumber, "A*", "1 2 3 4");
    row(DCM_AccessionNumber, "A[*", "3");
    row(DCM_AccessionNumber, "A%4", "4");
    row(DCM_AccessionNumber, "A?", "1 2");
    row(DCM_StudyID, "S1", "1");
    row(DCM_StudyID, "s1", "");
    row(DCM_StudyDescription, "CT *", "1 2");
    row(DCM_StudyDescription, "CT 100%", "2");
    row(DCM_StudyDescription, "CT-Thorax", "");
    row(DCM_StudyDescription, "MR a_b*", "3");
    row(DCM_StudyDescription, "MR a?b", "3");
    row(DCM_StudyDescription, "o'neil", "4");
    row(DCM_StudyDescription, "a/b\\*", "6");
    row(DCM_ReferringPhysicianName, "ref^a", "1 2 6");
    row(DCM_ReferringPhysicianName, "山^田", "4");
    row(DCM_ModalitiesInStudy, "CT", "1 2 6");
    row(DCM_ModalitiesInStudy, "MR\\US", "3 4");
    row(DCM_ModalitiesInStudy, "?R", "3 5");
    row(DCM_NumberOfStudyRelatedSeries, "7", "1 2 3 4 5 6");
}

void SearchTest::studiesAreFound() {
    QFETCH(const quint32, tag);
    QFETCH(const QString, asked);
    QFETCH(const QString, patients);
    const DcmTagKey key = tagOf(tag);
    // The identifier of a test is in UTF-8, as an identifier's text is once it has been read.
    const std::vector<AskedKey> keys{{DCM_SpecificCharacterSet, "ISO_IR 192"}, {key, asked.toStdString()}};
    const DcmTagKey wanted = key == DCM_PatientID ? DCM_StudyID : DCM_PatientID;
    QStringList expected = patients.split(u' ', Qt::SkipEmptyParts);
    if (wanted == DCM_StudyID)
        expected.replaceInStrings(QRegularExpression{u"^"_s}, u"S"_s);
    QCOMPARE(sorted(archive_->find("STUDY", keys, wanted)), expected);
    QCOMPARE(sorted(archive_->findByRows("STUDY", keys, wanted)), expected);
}

void SearchTest::allKeysTogetherChoose() {
    const auto find = [this](const std::vector<AskedKey>& keys) {
        const QStringList found = sorted(archive_->find("STUDY", keys, DCM_StudyInstanceUID));
        return found == sorted(archive_->findByRows("STUDY", keys, DCM_StudyInstanceUID))
                   ? found
                   : QStringList{u"?"_s};
    };
    QCOMPARE(find({{DCM_PatientName, "DOE*"}, {DCM_StudyDate, "20240101-20240131"}, {DCM_PatientSex, "F"}}),
             QStringList{u"1.2.2"_s});
    QCOMPARE(find({{DCM_PatientName, "D*"}, {DCM_AccessionNumber, "A1"}}), QStringList{u"1.2.1"_s});
    QCOMPARE(find({{DCM_PatientName, "M*"}, {DCM_AccessionNumber, "A1"}}), QStringList{});
    QCOMPARE(find({{DCM_StudyTime, "1015"}, {DCM_ModalitiesInStudy, "CT"}, {DCM_PatientID, "2"}}),
             QStringList{u"1.2.2"_s});
}

void SearchTest::listsOfAnyLengthAreFound_data() {
    QTest::addColumn<int>("length");
    for (const int length : {1, 2, 99, 100, 101, 1000, 2500})
        QTest::addRow("%d", length) << length;
}

void SearchTest::listsOfAnyLengthAreFound() {
    QFETCH(const int, length);
    std::string list = "1.2.4";
    for (int i = 1; i < length; ++i)
        list += "\\1.2.4." + std::to_string(i);
    if (length > 50)
        list += "\\1.2.2";  // in another piece of the list, or not
    const QStringList expected = length > 50 ? QStringList{u"1.2.2"_s, u"1.2.4"_s} : QStringList{u"1.2.4"_s};
    QCOMPARE(sorted(archive_->find("STUDY", {{DCM_StudyInstanceUID, list}}, DCM_StudyInstanceUID)), expected);
}

void SearchTest::aListThatRepeatsAUidFindsItOnce() {
    std::string list;
    for (int i = 0; i < 250; ++i)
        list += "1.2.1\\1.2.2\\";
    QCOMPARE(archive_->find("STUDY", {{DCM_StudyInstanceUID, list}}, DCM_StudyInstanceUID),
             QStringList({u"1.2.1"_s, u"1.2.2"_s}));
}

void SearchTest::aNameIsFoundOnceWhateverGroupsItMatches() {
    StockedArchive& archive = empty();
    archive.store({.patientId = "1", .patientName = "Wang^A=Wang^A=Wang^A"});
    archive.store({.patientId = "2", .patientName = "Li^B=Wang^A"});
    archive.store({.patientId = "3", .patientName = "Li^B==Wang^A"});
    for (const char* name : {"Wang^A", "Wang*", "wang^?", "*ang^A"})
        QCOMPARE(sorted(archive.find("PATIENT", {{DCM_PatientName, name}}, DCM_PatientID)),
                 QStringList({u"1"_s, u"2"_s, u"3"_s}));
}

void SearchTest::relationalQueriesReachThroughTheLevels_data() {
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<quint32>("tag");
    QTest::addColumn<QByteArray>("asked");
    QTest::addColumn<QString>("patients");
    const auto row = [](const char* level, const DcmTagKey& tag, const char* asked, const char* patients) {
        QTest::addRow("%s %s '%s'", level, findQueryKey(tag)->name.data(), asked)
            << QByteArray{level} << tagNumber(tag) << QByteArray{asked} << QString::fromLatin1(patients);
    };
    for (const char* level : {"SERIES", "IMAGE"}) {
        row(level, DCM_PatientName, "DOE*", "1 2 6");
        row(level, DCM_PatientName, "*J*", "1 2 3");
        row(level, DCM_PatientID, "3", "3");
        row(level, DCM_StudyDate, "20240101-20240131", "1 2 3");
        row(level, DCM_StudyInstanceUID, "1.2.1\\1.2.2", "1 2");
        row(level, DCM_SeriesInstanceUID, "1.2.1.1\\1.2.2.1", "1 2");
        row(level, DCM_Modality, "CT", "1 2 6");
        row(level, DCM_SeriesNumber, "01", "1 2 3 4 5 6");
    }
    row("IMAGE", DCM_SOPInstanceUID, "1.2.5.1.1", "5");
    row("IMAGE", DCM_InstanceNumber, "1", "1 2 3 4 5 6");
    row("IMAGE", DCM_InstanceNumber, "2", "");
}

void SearchTest::relationalQueriesReachThroughTheLevels() {
    QFETCH(const QByteArray, level);
    QFETCH(const quint32, tag);
    QFETCH(const QByteArray, asked);
    QFETCH(const QString, patients);
    const DcmTagKey key = tagOf(tag);
    const std::vector<AskedKey> keys{{key, asked.toStdString()}};
    QStringList expected = patients.split(u' ', Qt::SkipEmptyParts);
    expected.replaceInStrings(QRegularExpression{u"^"_s}, u"S"_s);
    QCOMPARE(sorted(archive_->find(level, keys, DCM_StudyID, {.relational = true})), expected);
    QCOMPARE(sorted(archive_->findByRows(level, keys, DCM_StudyID, {.relational = true})), expected);
}

void SearchTest::datesAndTimesAreOneWhereThatIsAgreed() {
    const std::vector<AskedKey> keys{{DCM_StudyDate, "20240101-20240103"}, {DCM_StudyTime, "1100-1130"}};
    QCOMPARE(archive_->find("STUDY", keys, DCM_PatientID), QStringList{});
    const QueryOptions combined{.combinedDateTime = true};
    QCOMPARE(archive_->find("STUDY", keys, DCM_PatientID, combined), QStringList{u"2"_s});
    QCOMPARE(archive_->findByRows("STUDY", keys, DCM_PatientID, combined), QStringList{u"2"_s});
}

void SearchTest::namesComeInOrderAndImagesByNumber() {
    StockedArchive& archive = empty();
    for (const char* name : {"doe^b", "DOE^C", "Doe^A", "Adam"})
        archive.store(
            {.patientId = name, .patientName = name, .studyInstanceUid = "1." + std::to_string(name[4])});
    QCOMPARE(archive.find("PATIENT", {}, DCM_PatientName),
             QStringList({u"Adam"_s, u"Doe^A"_s, u"doe^b"_s, u"DOE^C"_s}));
    QCOMPARE(archive.find("STUDY", {{DCM_PatientName, "DOE*"}}, DCM_PatientName),
             QStringList({u"Doe^A"_s, u"doe^b"_s, u"DOE^C"_s}));

    for (const char* number : {"10", "2", "1", "33"})
        archive.store({.patientId = "1",
                       .sopInstanceUid = std::string{"1.5."} + number,
                       .instanceNumber = number,
                       .numberInSeries = std::stoll(number)});
    QCOMPARE(archive.find("IMAGE", {{DCM_StudyInstanceUID, "1.2.1"}, {DCM_SeriesInstanceUID, "1.2.1.1"}},
                          DCM_InstanceNumber),
             QStringList({u"1"_s, u"2"_s, u"10"_s, u"33"_s}));
    archive.store({.patientId = "8", .studyDate = "20240202"});
    archive.store({.patientId = "9", .studyDate = "20240101"});
    QCOMPARE(archive.find("STUDY", {{DCM_StudyDate, "2"}}, DCM_StudyDate), QStringList{});
    QCOMPARE(archive.find("STUDY", {{DCM_StudyDate, "20240101-"}}, DCM_StudyDate),
             QStringList({u"20240101"_s, u"20240202"_s}));
}

/// Patient 7 has two studies: one with two series of two and three instances, one with a series of one.
void stockCounted(StockedArchive& archive) {
    const auto store = [&archive](const char* study, const char* series, const char* instance,
                                  const char* modality) {
        archive.store({.patientId = "7",
                       .patientName = "Count^Me",
                       .studyInstanceUid = study,
                       .seriesInstanceUid = series,
                       .modality = modality,
                       .sopInstanceUid = instance});
    };
    store("1.7.1", "1.7.1.1", "1.7.1.1.1", "CT");
    store("1.7.1", "1.7.1.1", "1.7.1.1.2", "CT");
    store("1.7.1", "1.7.1.2", "1.7.1.2.1", "SR");
    store("1.7.1", "1.7.1.2", "1.7.1.2.2", "SR");
    store("1.7.1", "1.7.1.2", "1.7.1.2.3", "SR");
    store("1.7.2", "1.7.2.1", "1.7.2.1.1", "MR");
}

QString SearchTest::counted(const char* level, const char* study, const DcmTagKey& counter) {
    std::vector<AskedKey> keys{{DCM_PatientID, "7"}};
    if (*study != '\0')
        keys.emplace_back(DCM_StudyInstanceUID, study);
    return archive_->find(level, keys, counter).join(u' ');
}

void SearchTest::countersAreExact_data() {
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QByteArray>("study");
    QTest::addColumn<quint32>("tag");
    QTest::addColumn<QString>("count");
    const auto row = [](const char* level, const char* study, const DcmTagKey& tag, const char* count) {
        QTest::addRow("%s %s %s", level, study, findQueryKey(tag)->name.data())
            << QByteArray{level} << QByteArray{study} << tagNumber(tag) << QString::fromLatin1(count);
    };
    row("PATIENT", "", DCM_NumberOfPatientRelatedStudies, "2");
    row("PATIENT", "", DCM_NumberOfPatientRelatedSeries, "3");
    row("PATIENT", "", DCM_NumberOfPatientRelatedInstances, "6");
    row("STUDY", "1.7.1", DCM_NumberOfPatientRelatedStudies, "2");
    row("STUDY", "1.7.1", DCM_NumberOfPatientRelatedSeries, "3");
    row("STUDY", "1.7.1", DCM_NumberOfPatientRelatedInstances, "6");
    row("STUDY", "1.7.1", DCM_NumberOfStudyRelatedSeries, "2");
    row("STUDY", "1.7.1", DCM_NumberOfStudyRelatedInstances, "5");
    row("STUDY", "1.7.2", DCM_NumberOfStudyRelatedInstances, "1");
    row("STUDY", "1.7.1", DCM_ModalitiesInStudy, "CT\\SR");
    row("STUDY", "1.7.2", DCM_ModalitiesInStudy, "MR");
    row("SERIES", "1.7.1", DCM_NumberOfSeriesRelatedInstances, "2 3");
    row("SERIES", "1.7.1", DCM_NumberOfStudyRelatedSeries, "2 2");
    row("SERIES", "1.7.1", DCM_NumberOfStudyRelatedInstances, "5 5");
}

void SearchTest::countersAreExact() {
    QFETCH(const QByteArray, level);
    QFETCH(const QByteArray, study);
    QFETCH(const quint32, tag);
    QFETCH(const QString, count);
    stockCounted(empty());
    stockCounted(*archive_);  // an instance that comes twice counts once
    QCOMPARE(counted(level, study, tagOf(tag)), count);
    // All at once, gathered from the same rows.
    const std::vector<AskedKey> all{
        {DCM_StudyInstanceUID, "1.7.1"}, {DCM_ModalitiesInStudy, "SR"}, {DCM_NumberOfStudyRelatedSeries, ""}};
    QCOMPARE(archive_->find("STUDY", all, DCM_NumberOfStudyRelatedInstances), QStringList{u"5"_s});
}

void SearchTest::countersFollowReplacedMovedAndRemovedObjects() {
    stockCounted(empty());
    // Moved to another study by coming again with other UIDs.
    archive_->store({.patientId = "7",
                     .patientName = "Count^Me",
                     .studyInstanceUid = "1.7.2",
                     .seriesInstanceUid = "1.7.2.1",
                     .modality = "MR",
                     .sopInstanceUid = "1.7.1.1.2"});
    QCOMPARE(counted("STUDY", "1.7.1", DCM_NumberOfStudyRelatedInstances), u"4"_s);
    QCOMPARE(counted("STUDY", "1.7.2", DCM_NumberOfStudyRelatedInstances), u"2"_s);
    // Removed as a repair does.
    archive_->database.run(u"DELETE FROM Image WHERE SeriesInstanceUID='1.7.1.2'"_s);
    QCOMPARE(counted("STUDY", "1.7.1", DCM_NumberOfStudyRelatedInstances), u"1"_s);
    QCOMPARE(counted("STUDY", "1.7.1", DCM_NumberOfStudyRelatedSeries), u"2"_s);
    archive_->database.run(u"DELETE FROM Series WHERE SeriesInstanceUID='1.7.1.2'"_s);
    QCOMPARE(counted("STUDY", "1.7.1", DCM_NumberOfStudyRelatedSeries), u"1"_s);
    QCOMPARE(counted("STUDY", "1.7.1", DCM_ModalitiesInStudy), u"CT"_s);
    QCOMPARE(counted("PATIENT", "", DCM_NumberOfPatientRelatedInstances), u"3"_s);
    archive_->database.run(u"DELETE FROM Series WHERE StudyInstanceUID='1.7.1'"_s);
    QCOMPARE(counted("STUDY", "1.7.1", DCM_NumberOfStudyRelatedInstances), u"0"_s);
    QCOMPARE(counted("STUDY", "1.7.1", DCM_ModalitiesInStudy), u""_s);
}

void SearchTest::rowsWithoutTheServersColumnsAreStillFoundByOthers() {
    StockedArchive& archive = empty();
    archive.database.run(u"INSERT INTO Patient (ID, PatientID, Name) VALUES (1, 'OLD', 'Old^Row')"_s);
    archive.database.run(
        u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES ('1.9', 1, '/archive')"_s);
    archive.database.run(
        u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES ('1.10', 99, '/archive')"_s);
    QCOMPARE(archive.find("STUDY", {{DCM_PatientID, "OLD"}}, DCM_StudyInstanceUID), QStringList{u"1.9"_s});
    QCOMPARE(archive.find("STUDY", {{DCM_PatientName, "*Row"}}, DCM_StudyInstanceUID), QStringList{u"1.9"_s});
    QCOMPARE(sorted(archive.find("STUDY", {{DCM_PatientName, ""}}, DCM_StudyInstanceUID)),
             QStringList({u"1.10"_s, u"1.9"_s}));
    archive.store({.patientId = "NEW2", .patientName = "Old^Another=Old^Another"});
    archive.hasOlderRows = true;
    for (const char* name : {"Old*", "OLD^ROW", "old^r?w"})
        QVERIFY2(archive.find("STUDY", {{DCM_PatientName, name}}, DCM_PatientID).contains(u"OLD"_s), name);
    QCOMPARE(archive.find("STUDY", {{DCM_PatientName, "Old*"}}, DCM_PatientID).size(), 2);
    QCOMPARE(archive.find("STUDY", {{DCM_PatientName, "Row*"}}, DCM_PatientID), QStringList{});
}

QTEST_APPLESS_MAIN(SearchTest)
#include "tst_search.moc"
