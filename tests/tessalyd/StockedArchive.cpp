#include "tests/tessalyd/StockedArchive.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <stdexcept>

#include "dicom/data/NameFolding.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/search/ArchiveSearch.h"

using namespace Qt::StringLiterals;

namespace tessaly::test {

using namespace tessalyd;

DcmDataset identifier(const char* level, const std::vector<AskedKey>& keys) {
    DcmDataset dataset;
    dataset.putAndInsertString(DCM_QueryRetrieveLevel, level);
    for (const auto& [tag, value] : keys) {
        // An element that the toolkit would check for its contents is put in as it is.
        if (dataset.putAndInsertString(tag, value.c_str(), static_cast<Uint32>(value.size())).bad())
            throw std::runtime_error("no such key");
    }
    return dataset;
}

StockedArchive::StockedArchive() {
    openDatabase(connection);
}

void StockedArchive::store(ObjectHeader header) {
    if (header.studyInstanceUid.empty())
        header.studyInstanceUid =
            "1.2." + header.patientId.substr(header.patientId.find_first_of("0123456789"));
    if (header.seriesInstanceUid.empty())
        header.seriesInstanceUid = header.studyInstanceUid + ".1";
    if (header.sopInstanceUid.empty())
        header.sopInstanceUid = header.seriesInstanceUid + ".1";
    header.nameGroups = dicom::foldedGroups(header.patientName);
    session.record(header, {.studyPath = "/archive\\" + header.studyInstanceUid,
                            .seriesDir = header.seriesInstanceUid,
                            .imageFile = header.sopInstanceUid + ".dcm"});
}

void stockMany(const ScratchDatabase& database, int count) {
    const auto insert = [&database, count](const QString& columns, const QString& values) {
        database.run(u"INSERT INTO "_s + columns +
                     u" WITH RECURSIVE n(i) AS (SELECT 1000 UNION ALL SELECT i+1 FROM n WHERE i<"_s +
                     QString::number(count + 999) + u") SELECT "_s + values + u" FROM n"_s);
    };
    const auto date = [](int firstYear) {
        return u"'%1'||(10+i%10)||'0'||(1+i/10%9)||(10+i/90%20)"_s.arg(firstYear / 100);
    };
    insert(u"Patient (ID, PatientID, Name, BirthDate, Sex, NameAlphabetic, NameIdeographic, NamePhonetic)"_s,
           u"i, 'M'||i, 'Many^Nr'||i, "_s + date(1910) + u", 'F', 'many^nr'||i, '', ''"_s);
    insert(
        u"Study (StudyInstanceUID, IDPatient, StudyPath, StudyID, StudyDate, StudyTime, AccessionNumber, "
        "Description, ReferringPhysicianName)"_s,
        u"'1.9.'||i, i, '/archive', 'S'||i, "_s + date(2010) +
            u", '10', 'A'||i, 'a description of some length', ''"_s);
    insert(
        u"Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir, Modality, SeriesNumber, Description, "
        "SeriesDate, SeriesTime, BodyPartExamined, ProtocolName)"_s,
        u"'1.9.'||i||'.1', '1.9.'||i, 's', 'CT', '1', '', '', '', '', ''"_s);
    insert(
        u"Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, TransferSyntaxUID, "
        "InstanceNumber, NumberInSeries, ContentDate, ContentTime)"_s,
        u"'1.9.'||i||'.1.1', '1.9.'||i||'.1', 'f', '1.2', '1.3', '1', 1, '', ''"_s);
}

QStringList StockedArchive::find(const char* level, std::vector<AskedKey> keys, const DcmTagKey& wanted,
                                 const QueryOptions& options) {
    return search(level, std::move(keys), wanted, options, true);
}

QStringList StockedArchive::findByRows(const char* level, std::vector<AskedKey> keys, const DcmTagKey& wanted,
                                       const QueryOptions& options) {
    return search(level, std::move(keys), wanted, options, false);
}

QStringList StockedArchive::search(const char* level, std::vector<AskedKey> keys, const DcmTagKey& wanted,
                                   const QueryOptions& options, bool narrow) {
    if (std::none_of(keys.begin(), keys.end(), [&](const AskedKey& key) { return key.first == wanted; }))
        keys.emplace_back(wanted, "");
    DcmDataset question = identifier(level, keys);
    const auto model =
        std::string_view{level} == "PATIENT" ? InformationModel::PatientRoot : InformationModel::StudyRoot;
    ArchiveQuery query = readQuery(question, model, options).query;
    query.hasOlderRows = hasOlderRows;
    ArchiveSearch search{std::move(query), {}, narrow};
    const auto& asked = search.query().keys;
    const auto place =
        std::find_if(asked.begin(), asked.end(), [&](const auto& key) { return key.key->tag == wanted; });
    QStringList found;
    while (readNext(search, statements))
        found += QString::fromStdString(
            std::string{search.value(static_cast<std::size_t>(place - asked.begin()))});
    return found;
}

void makeStudiesSlow(const ScratchDatabase& database) {
    database.run(u"ALTER TABLE Study RENAME TO StudyRows"_s);
    database.run(
        u"CREATE VIEW Study AS SELECT StudyInstanceUID, IDPatient, StudyPath, StudyID, StudyDate, StudyTime, "
        "AccessionNumber, ReferringPhysicianName, Description||(SELECT SUM(i) FROM (WITH RECURSIVE n(i) AS "
        "(SELECT length(StudyRows.StudyID) UNION ALL SELECT i+1 FROM n WHERE i<4000) SELECT i FROM n) AS "
        "Numbers) "
        "AS Description FROM StudyRows"_s);
}

void makeStudiesEndless(const ScratchDatabase& database) {
    database.run(u"ALTER TABLE Study RENAME TO StudyRows"_s);
    database.run(
        u"CREATE VIEW Study AS SELECT * FROM StudyRows WHERE (SELECT COUNT(*) FROM (WITH RECURSIVE n(i) AS "
        "(SELECT 1 UNION ALL SELECT i FROM n) SELECT i FROM n) AS Numbers)=0"_s);
}

void makeStudiesFast(const ScratchDatabase& database) {
    database.run(u"DROP VIEW Study"_s);
    database.run(u"ALTER TABLE StudyRows RENAME TO Study"_s);
}

QStringList sorted(QStringList texts) {
    texts.sort();
    return texts;
}

}  // namespace tessaly::test
