#include "tests/tessaly-db/FillTest.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <QDir>
#include <QTest>
#include <array>

#include "db/Query.h"
#include "db/Transaction.h"
#include "tests/tessalyd/Objects.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

void FillTest::init() {
    ToolTest::init();
    create();
    QVERIFY(QDir{}.mkpath(imageFolder()));
}

void FillTest::makeOlder() {
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

void FillTest::addRows(int number, const QString& file) {
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

void FillTest::writeRows() {
    db::Connection connection;
    connection.setConnectString("DSN=DicomFDB");
    connection.establish();
    db::Transaction transaction{connection};
    for (const QString& row : std::as_const(rows_))
        db::execute(connection, row.toStdString());
    transaction.commit();
    rows_.clear();
}

void FillTest::addObject(int number) {
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

QString FillTest::row(const QString& columns, const QString& table, const QString& where) {
    QStringList values;
    for (const QString& name : columns.split(u", "_s))
        values += column(qPrintable(u"SELECT %1 FROM %2 WHERE %3"_s.arg(name, table, where))).join(u',');
    return values.join(u'|');
}
