#include "tessalyd/search/QueryKeys.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <vector>

namespace tessaly::tessalyd {

namespace {

/// A key that is stored in a column of its level's table.
QueryKey stored(Level level, const DcmTagKey& tag, DcmEVR vr, Matching matching, std::string_view name,
                std::string_view column) {
    return {.tag = tag, .vr = vr, .level = level, .matching = matching, .name = name, .column = column};
}

/// The same with an index, and how few rows one value leaves.
QueryKey indexed(Level level, const DcmTagKey& tag, DcmEVR vr, Matching matching, std::string_view name,
                 std::string_view column, int selectivity) {
    QueryKey key = stored(level, tag, vr, matching, name, column);
    key.indexed = {column};
    key.selectivity = selectivity;
    return key;
}

/// Of as many parts as an entity has at that level.
QueryKey counter(Level level, const DcmTagKey& tag, std::string_view name, Level counted,
                 std::string_view count) {
    QueryKey key = stored(level, tag, EVR_IS, Matching::Counter, name, count);
    key.counted = counted;
    return key;
}

QueryKey patientName() {
    QueryKey key =
        stored(Level::Patient, DCM_PatientName, EVR_PN, Matching::Name, "PatientName", "Patient.Name");
    key.indexed = {"Patient.NameAlphabetic", "Patient.NameIdeographic", "Patient.NamePhonetic"};
    key.selectivity = 2;
    return key;
}

constexpr std::string_view StudiesOfPatient =
    "(SELECT COUNT(*) FROM Study AS S WHERE S.IDPatient=Patient.ID)";
constexpr std::string_view SeriesOfPatient =
    "(SELECT COUNT(*) FROM Study AS S, Series AS R WHERE S.IDPatient=Patient.ID "
    "AND R.StudyInstanceUID=S.StudyInstanceUID)";
constexpr std::string_view ImagesOfPatient =
    "(SELECT COUNT(*) FROM Study AS S, Series AS R, Image AS I WHERE S.IDPatient=Patient.ID "
    "AND R.StudyInstanceUID=S.StudyInstanceUID AND I.SeriesInstanceUID=R.SeriesInstanceUID)";
constexpr std::string_view SeriesOfStudy =
    "(SELECT COUNT(*) FROM Series AS R WHERE R.StudyInstanceUID=Study.StudyInstanceUID)";
constexpr std::string_view ImagesOfStudy =
    "(SELECT COUNT(*) FROM Series AS R, Image AS I WHERE R.StudyInstanceUID=Study.StudyInstanceUID "
    "AND I.SeriesInstanceUID=R.SeriesInstanceUID)";
constexpr std::string_view ImagesOfSeries =
    "(SELECT COUNT(*) FROM Image AS I WHERE I.SeriesInstanceUID=Series.SeriesInstanceUID)";

std::vector<QueryKey> sortedKeys() {
    using enum Level;
    using enum Matching;
    // clang-format off
    std::vector<QueryKey> keys{
        patientName(),
        indexed(Patient, DCM_PatientID, EVR_LO, Text, "PatientID", "Patient.PatientID", 1),
        indexed(Patient, DCM_PatientBirthDate, EVR_DA, Date, "PatientBirthDate", "Patient.BirthDate", 3),
        stored(Patient, DCM_PatientSex, EVR_CS, Code, "PatientSex", "Patient.Sex"),
        counter(Patient, DCM_NumberOfPatientRelatedStudies, "PatientStudies", Study, StudiesOfPatient),
        counter(Patient, DCM_NumberOfPatientRelatedSeries, "PatientSeries", Series, SeriesOfPatient),
        counter(Patient, DCM_NumberOfPatientRelatedInstances, "PatientInstances", Image, ImagesOfPatient),

        indexed(Study, DCM_StudyInstanceUID, EVR_UI, Uid, "StudyInstanceUID", "Study.StudyInstanceUID", 0),
        indexed(Study, DCM_StudyDate, EVR_DA, Date, "StudyDate", "Study.StudyDate", 4),
        stored(Study, DCM_StudyTime, EVR_TM, Time, "StudyTime", "Study.StudyTime"),
        indexed(Study, DCM_AccessionNumber, EVR_SH, Text, "AccessionNumber", "Study.AccessionNumber", 1),
        indexed(Study, DCM_StudyID, EVR_SH, Text, "StudyID", "Study.StudyID", 5),
        indexed(Study, DCM_StudyDescription, EVR_LO, Text, "StudyDescription", "Study.Description", 6),
        stored(Study, DCM_ReferringPhysicianName, EVR_PN, Name, "ReferringPhysicianName", "Study.ReferringPhysicianName"),
        stored(Study, DCM_ModalitiesInStudy, EVR_CS, Modalities, "ModalitiesInStudy", ""),
        counter(Study, DCM_NumberOfStudyRelatedSeries, "StudySeries", Series, SeriesOfStudy),
        counter(Study, DCM_NumberOfStudyRelatedInstances, "StudyInstances", Image, ImagesOfStudy),

        indexed(Series, DCM_SeriesInstanceUID, EVR_UI, Uid, "SeriesInstanceUID", "Series.SeriesInstanceUID", 0),
        stored(Series, DCM_Modality, EVR_CS, Code, "Modality", "Series.Modality"),
        stored(Series, DCM_SeriesNumber, EVR_IS, Number, "SeriesNumber", "Series.SeriesNumber"),
        stored(Series, DCM_SeriesDescription, EVR_LO, Text, "SeriesDescription", "Series.Description"),
        stored(Series, DCM_SeriesDate, EVR_DA, Date, "SeriesDate", "Series.SeriesDate"),
        stored(Series, DCM_SeriesTime, EVR_TM, Time, "SeriesTime", "Series.SeriesTime"),
        stored(Series, DCM_BodyPartExamined, EVR_CS, Code, "BodyPartExamined", "Series.BodyPartExamined"),
        stored(Series, DCM_ProtocolName, EVR_LO, Text, "ProtocolName", "Series.ProtocolName"),
        counter(Series, DCM_NumberOfSeriesRelatedInstances, "SeriesInstances", Image, ImagesOfSeries),

        indexed(Image, DCM_SOPInstanceUID, EVR_UI, Uid, "SOPInstanceUID", "Image.SOPInstanceUID", 0),
        stored(Image, DCM_SOPClassUID, EVR_UI, Uid, "SOPClassUID", "Image.SOPClassUID"),
        stored(Image, DCM_InstanceNumber, EVR_IS, Number, "InstanceNumber", "Image.InstanceNumber"),
        stored(Image, DCM_ContentDate, EVR_DA, Date, "ContentDate", "Image.ContentDate"),
        stored(Image, DCM_ContentTime, EVR_TM, Time, "ContentTime", "Image.ContentTime"),
        stored(Image, DCM_Rows, EVR_US, Number, "Rows", "Image.PixelRows"),
        stored(Image, DCM_Columns, EVR_US, Number, "Columns", "Image.PixelColumns"),
        stored(Image, DCM_NumberOfFrames, EVR_IS, Number, "NumberOfFrames", "Image.NumberOfFrames"),
    };
    // clang-format on
    std::sort(keys.begin(), keys.end(), [](const QueryKey& a, const QueryKey& b) { return a.tag < b.tag; });
    return keys;
}

}  // namespace

std::span<const QueryKey> queryKeys() {
    static const std::vector<QueryKey> keys = sortedKeys();
    return keys;
}

const QueryKey* findQueryKey(const DcmTagKey& tag) {
    const auto keys = queryKeys();
    const auto found =
        std::lower_bound(keys.begin(), keys.end(), tag,
                         [](const QueryKey& key, const DcmTagKey& wanted) { return key.tag < wanted; });
    return found != keys.end() && found->tag == tag ? &*found : nullptr;
}

const QueryKey& uniqueKey(Level level) {
    static const std::array keys{findQueryKey(DCM_PatientID), findQueryKey(DCM_StudyInstanceUID),
                                 findQueryKey(DCM_SeriesInstanceUID), findQueryKey(DCM_SOPInstanceUID)};
    return *keys.at(static_cast<std::size_t>(level));
}

}  // namespace tessaly::tessalyd
