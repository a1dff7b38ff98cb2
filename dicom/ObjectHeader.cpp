#include "dicom/ObjectHeader.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <vector>

#include "dicom/DataSetText.h"
#include "dicom/DataSetWalk.h"
#include "dicom/DateTimeRange.h"
#include "dicom/NameFolding.h"
#include "dicom/ObjectFile.h"
#include "dicom/SkippingStream.h"

namespace tessaly::dicom {

namespace {

/// Longer values are not read: none of the header's is nearly as long.
constexpr Uint32 LongestValue = 4096;

/// How much of a file is read at once; most headers are well within the first.
constexpr std::size_t FirstLook = std::size_t{32} << 10U;
constexpr std::size_t LookGrowth = 8;
constexpr std::size_t LongestHeader = std::size_t{64} << 20U;

std::optional<long long> number(DcmDataset& dataset, const DcmTagKey& tag) {
    Uint16 found = 0;
    if (dataset.findAndGetUint16(tag, found).bad())
        return std::nullopt;
    return found;
}

/// Nothing for what the tables' number columns cannot hold, either.
std::optional<long long> whole(std::string_view text) {
    text.remove_prefix(text.starts_with('+') ? 1 : 0);
    std::int32_t value = 0;
    const auto* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc{} && stop == end ? std::optional<long long>{value} : std::nullopt;
}

ObjectHeader extract(DcmDataset& dataset) {
    const DataSetText text{dataset};
    const auto uid = [&text](const DcmTagKey& tag) {
        return text.value(tag, LongestValue);  // what is too long must fail, not fit
    };
    // The old form of a date, with points, as the new one: only that is found by.
    const auto date = [&text](const DcmTagKey& tag) {
        constexpr std::size_t AnyForm = 10;
        constexpr std::size_t Width = 8;
        auto plain = storedDate(text.value(tag, AnyForm));
        return plain ? std::move(*plain) : text.value(tag, Width);
    };
    ObjectHeader header{
        .patientId = text.value(DCM_PatientID, 64),
        .patientName = text.value(DCM_PatientName, 324),
        .birthDate = date(DCM_PatientBirthDate),
        .sex = text.value(DCM_PatientSex, 16),
        .studyInstanceUid = uid(DCM_StudyInstanceUID),
        .studyId = text.value(DCM_StudyID, 16),
        .studyDate = date(DCM_StudyDate),
        .studyTime = text.value(DCM_StudyTime, 16),
        .accessionNumber = text.value(DCM_AccessionNumber, 16),
        .studyDescription = text.value(DCM_StudyDescription, 64),
        .referringPhysicianName = text.value(DCM_ReferringPhysicianName, 324),
        .seriesInstanceUid = uid(DCM_SeriesInstanceUID),
        .modality = text.value(DCM_Modality, 16),
        .seriesNumber = text.value(DCM_SeriesNumber, 12),
        .seriesDescription = text.value(DCM_SeriesDescription, 64),
        .seriesDate = date(DCM_SeriesDate),
        .seriesTime = text.value(DCM_SeriesTime, 16),
        .bodyPartExamined = text.value(DCM_BodyPartExamined, 16),
        .protocolName = text.value(DCM_ProtocolName, 64),
        .sopInstanceUid = uid(DCM_SOPInstanceUID),
        .sopClassUid = uid(DCM_SOPClassUID),
        .instanceNumber = text.value(DCM_InstanceNumber, 12),
        .contentDate = date(DCM_ContentDate),
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

std::optional<ObjectHeader> readHeader(std::span<const char> data, E_TransferSyntax syntax, bool complete,
                                       const std::function<void(DcmDataset&)>& look) {
    const DcmTagKey behind{DCM_Columns.getGroup(), static_cast<Uint16>(DCM_Columns.getElement() + 1)};
    if (nestsTooDeep(data, syntax, behind))
        throw HeaderFault{"Sequences of the object are nested too deeply"};
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
        throw HeaderFault{"The data set cannot be read", read.text()};
    if (look)
        look(dataset);
    return extract(dataset);
}

ObjectHeader readHeader(const std::filesystem::path& file) {
    const ObjectFile object{file};
    const E_TransferSyntax syntax = DcmXfer{object.kind().transferSyntax.c_str()}.getXfer();
    if (syntax == EXS_Unknown)
        throw std::runtime_error{file.string() + ": its transfer syntax is unknown"};
    std::vector<char> bytes;
    std::optional<ObjectHeader> header;
    for (std::size_t size = FirstLook; !header; size *= LookGrowth) {
        const bool complete = size >= object.size();
        if (!complete && size > LongestHeader)
            throw std::runtime_error{file.string() + ": its header does not end"};
        const std::size_t known = bytes.size();
        bytes.resize(std::min(size, object.size()));
        object.readAt(known, std::span{bytes}.subspan(known));
        try {
            header = readHeader(bytes, syntax, complete);
        } catch (const HeaderFault& fault) {
            throw std::runtime_error{file.string() + ": " + fault.what()};
        }
    }
    header->transferSyntaxUid = object.kind().transferSyntax;
    return *std::move(header);
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

}  // namespace tessaly::dicom
