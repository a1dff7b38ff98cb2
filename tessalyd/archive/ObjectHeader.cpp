#include "tessalyd/archive/ObjectHeader.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dimse.h>

#include <algorithm>
#include <sstream>
#include <utility>

#include "db/Number.h"
#include "tessalyd/Log.h"
#include "tessalyd/archive/DataSetText.h"
#include "tessalyd/archive/DataSetWalk.h"
#include "tessalyd/archive/DateTimeRange.h"
#include "tessalyd/archive/NameFolding.h"
#include "tessalyd/archive/SkippingStream.h"
#include "tessalyd/archive/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

/// Longer values are not read: none of the header's is nearly as long.
constexpr Uint32 LongestValue = 4096;

void dump(DcmDataset& dataset) {
    const OFLogger& log = dumpLog(Dump::Vr);
    if (!log.isEnabledFor(OFLogger::DEBUG_LOG_LEVEL))
        return;
    std::ostringstream text;
    dataset.print(text);
    OFLOG_DEBUG(log, "header of the object" << OFendl << text.str().c_str());
}

/// The old form of a date, with points, as the new one: only that is found by.
std::string date(std::string text) {
    if (auto plain = storedDate(text))
        return std::move(*plain);
    constexpr std::size_t Width = 8;
    text.resize(std::min(text.size(), Width));
    return text;
}

std::optional<long long> number(DcmDataset& dataset, const DcmTagKey& tag) {
    Uint16 found = 0;
    if (dataset.findAndGetUint16(tag, found).bad())
        return std::nullopt;
    return found;
}

/// Nothing for what the tables' number columns cannot hold, either.
std::optional<long long> whole(std::string_view text) {
    const auto value = db::toWholeNumber(text.substr(text.starts_with('+') ? 1 : 0));
    return value && std::in_range<std::int32_t>(*value) ? value : std::nullopt;
}

ObjectHeader extract(DcmDataset& dataset) {
    const DataSetText text{dataset};
    const auto uid = [&text](const DcmTagKey& tag) {
        return text.value(tag, LongestValue);  // what is too long must fail, not fit
    };
    // Long enough for a date with points, and for any text that is none: only what it begins with is kept.
    constexpr std::size_t AnyDate = 10;
    ObjectHeader header{
        .patientId = text.value(DCM_PatientID, 64),
        .patientName = text.value(DCM_PatientName, 324),
        .birthDate = date(text.value(DCM_PatientBirthDate, AnyDate)),
        .sex = text.value(DCM_PatientSex, 16),
        .studyInstanceUid = uid(DCM_StudyInstanceUID),
        .studyId = text.value(DCM_StudyID, 16),
        .studyDate = date(text.value(DCM_StudyDate, AnyDate)),
        .studyTime = text.value(DCM_StudyTime, 16),
        .accessionNumber = text.value(DCM_AccessionNumber, 16),
        .studyDescription = text.value(DCM_StudyDescription, 64),
        .referringPhysicianName = text.value(DCM_ReferringPhysicianName, 324),
        .seriesInstanceUid = uid(DCM_SeriesInstanceUID),
        .modality = text.value(DCM_Modality, 16),
        .seriesNumber = text.value(DCM_SeriesNumber, 12),
        .seriesDescription = text.value(DCM_SeriesDescription, 64),
        .seriesDate = date(text.value(DCM_SeriesDate, AnyDate)),
        .seriesTime = text.value(DCM_SeriesTime, 16),
        .bodyPartExamined = text.value(DCM_BodyPartExamined, 16),
        .protocolName = text.value(DCM_ProtocolName, 64),
        .sopInstanceUid = uid(DCM_SOPInstanceUID),
        .sopClassUid = uid(DCM_SOPClassUID),
        .instanceNumber = text.value(DCM_InstanceNumber, 12),
        .contentDate = date(text.value(DCM_ContentDate, AnyDate)),
        .contentTime = text.value(DCM_ContentTime, 16),
        .pixelRows = number(dataset, DCM_Rows),
        .pixelColumns = number(dataset, DCM_Columns),
        .numberOfFrames = whole(text.value(DCM_NumberOfFrames, 12)),
        .transferSyntaxUid = {},
    };
    header.nameGroups = foldedGroups(header.patientName);
    header.numberInSeries = whole(header.instanceNumber).value_or(0);
    return header;
}

}  // namespace

std::optional<ObjectHeader> readHeader(std::span<const char> data, E_TransferSyntax syntax, bool complete) {
    const DcmTagKey behind{DCM_Columns.getGroup(), static_cast<Uint16>(DCM_Columns.getElement() + 1)};
    if (nestsTooDeep(data, syntax, behind))
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand,
                           "Sequences of the object are nested too deeply"};
    SkippingStream stream;
    stream.setBuffer(data.data(), static_cast<offile_off_t>(data.size()));
    if (complete)
        stream.setEos();
    DcmDataset dataset;
    dataset.transferInit();
    const OFCondition read = dataset.readUntilTag(stream, syntax, EGL_noChange, LongestValue, behind);
    dataset.transferEnd();
    if (read == EC_StreamNotifyClient && !complete)
        return std::nullopt;
    if (read.bad())
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand, "The data set cannot be read", read.text()};
    dump(dataset);
    return extract(dataset);
}

bool isUid(std::string_view text) noexcept {
    constexpr std::size_t Longest = 64;
    if (text.empty() || text.size() > Longest)
        return false;
    bool digitBefore = false;
    for (const char c : text) {
        const bool digit = c >= '0' && c <= '9';
        if (!digit && !(c == '.' && digitBefore))
            return false;
        digitBefore = digit;
    }
    return digitBefore;
}

}  // namespace tessaly::tessalyd
