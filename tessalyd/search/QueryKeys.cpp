#include "tessalyd/search/QueryKeys.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <vector>

namespace tessaly::tessalyd {

namespace {

std::vector<QueryKey> sortedKeys() {
    using enum Level;
    using enum Matching;
    std::vector<QueryKey> keys{
        {DCM_PatientName,
         EVR_PN,
         Patient,
         Name,
         "PatientName",
         "Patient.Name",
         {"Patient.NameAlphabetic", "Patient.NameIdeographic", "Patient.NamePhonetic"},
         2},
        {DCM_PatientID, EVR_LO, Patient, Text, "PatientID", "Patient.PatientID", {"Patient.PatientID"}, 1},
        {DCM_PatientBirthDate,
         EVR_DA,
         Patient,
         Date,
         "PatientBirthDate",
         "Patient.BirthDate",
         {"Patient.BirthDate"},
         3},
        {DCM_PatientSex, EVR_CS, Patient, Code, "PatientSex", "Patient.Sex"},
        {DCM_NumberOfPatientRelatedStudies,
         EVR_IS,
         Patient,
         Counter,
         "PatientStudies",
         "(SELECT COUNT(*) FROM Study AS S WHERE S.IDPatient=Patient.ID)",
         {},
         0,
         Study},
        {DCM_NumberOfPatientRelatedSeries,
         EVR_IS,
         Patient,
         Counter,
         "PatientSeries",
         "(SELECT COUNT(*) FROM Study AS S, Series AS R WHERE S.IDPatient=Patient.ID "
         "AND R.StudyInstanceUID=S.StudyInstanceUID)",
         {},
         0,
         Series},
        {DCM_NumberOfPatientRelatedInstances,
         EVR_IS,
         Patient,
         Counter,
         "PatientInstances",
         "(SELECT COUNT(*) FROM Study AS S, Series AS R, Image AS I WHERE S.IDPatient=Patient.ID "
         "AND R.StudyInstanceUID=S.StudyInstanceUID AND I.SeriesInstanceUID=R.SeriesInstanceUID)",
         {},
         0,
         Image},

        {DCM_StudyInstanceUID,
         EVR_UI,
         Study,
         Uid,
         "StudyInstanceUID",
         "Study.StudyInstanceUID",
         {"Study.StudyInstanceUID"}},
        {DCM_StudyDate, EVR_DA, Study, Date, "StudyDate", "Study.StudyDate", {"Study.StudyDate"}, 4},
        {DCM_StudyTime, EVR_TM, Study, Time, "StudyTime", "Study.StudyTime"},
        {DCM_AccessionNumber,
         EVR_SH,
         Study,
         Text,
         "AccessionNumber",
         "Study.AccessionNumber",
         {"Study.AccessionNumber"},
         1},
        {DCM_StudyID, EVR_SH, Study, Text, "StudyID", "Study.StudyID", {"Study.StudyID"}, 5},
        {DCM_StudyDescription,
         EVR_LO,
         Study,
         Text,
         "StudyDescription",
         "Study.Description",
         {"Study.Description"},
         6},
        {DCM_ReferringPhysicianName, EVR_PN, Study, Name, "ReferringPhysicianName",
         "Study.ReferringPhysicianName"},
        {DCM_ModalitiesInStudy, EVR_CS, Study, Modalities, "ModalitiesInStudy", ""},
        {DCM_NumberOfStudyRelatedSeries,
         EVR_IS,
         Study,
         Counter,
         "StudySeries",
         "(SELECT COUNT(*) FROM Series AS R WHERE R.StudyInstanceUID=Study.StudyInstanceUID)",
         {},
         0,
         Series},
        {DCM_NumberOfStudyRelatedInstances,
         EVR_IS,
         Study,
         Counter,
         "StudyInstances",
         "(SELECT COUNT(*) FROM Series AS R, Image AS I WHERE R.StudyInstanceUID=Study.StudyInstanceUID "
         "AND I.SeriesInstanceUID=R.SeriesInstanceUID)",
         {},
         0,
         Image},

        {DCM_SeriesInstanceUID,
         EVR_UI,
         Series,
         Uid,
         "SeriesInstanceUID",
         "Series.SeriesInstanceUID",
         {"Series.SeriesInstanceUID"}},
        {DCM_Modality, EVR_CS, Series, Code, "Modality", "Series.Modality"},
        {DCM_SeriesNumber, EVR_IS, Series, Number, "SeriesNumber", "Series.SeriesNumber"},
        {DCM_SeriesDescription, EVR_LO, Series, Text, "SeriesDescription", "Series.Description"},
        {DCM_SeriesDate, EVR_DA, Series, Date, "SeriesDate", "Series.SeriesDate"},
        {DCM_SeriesTime, EVR_TM, Series, Time, "SeriesTime", "Series.SeriesTime"},
        {DCM_BodyPartExamined, EVR_CS, Series, Code, "BodyPartExamined", "Series.BodyPartExamined"},
        {DCM_ProtocolName, EVR_LO, Series, Text, "ProtocolName", "Series.ProtocolName"},
        {DCM_NumberOfSeriesRelatedInstances,
         EVR_IS,
         Series,
         Counter,
         "SeriesInstances",
         "(SELECT COUNT(*) FROM Image AS I WHERE I.SeriesInstanceUID=Series.SeriesInstanceUID)",
         {},
         0,
         Image},

        {DCM_SOPInstanceUID,
         EVR_UI,
         Image,
         Uid,
         "SOPInstanceUID",
         "Image.SOPInstanceUID",
         {"Image.SOPInstanceUID"}},
        {DCM_SOPClassUID, EVR_UI, Image, Uid, "SOPClassUID", "Image.SOPClassUID"},
        {DCM_InstanceNumber, EVR_IS, Image, Number, "InstanceNumber", "Image.InstanceNumber"},
        {DCM_ContentDate, EVR_DA, Image, Date, "ContentDate", "Image.ContentDate"},
        {DCM_ContentTime, EVR_TM, Image, Time, "ContentTime", "Image.ContentTime"},
        {DCM_Rows, EVR_US, Image, Number, "Rows", "Image.PixelRows"},
        {DCM_Columns, EVR_US, Image, Number, "Columns", "Image.PixelColumns"},
        {DCM_NumberOfFrames, EVR_IS, Image, Number, "NumberOfFrames", "Image.NumberOfFrames"},
    };
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
