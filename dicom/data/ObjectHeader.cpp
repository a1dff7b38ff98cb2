#include "dicom/data/ObjectHeader.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "dicom/data/DateTimeRange.h"
#include "dicom/data/NameFolding.h"
#include "dicom/data/ObjectFile.h"
#include "dicom/data/TextDecoder.h"

namespace tessaly::dicom {

namespace {

constexpr std::size_t BlockSize = std::size_t{32} << 10U;  // most headers are well within the first

std::vector<DcmTagKey> headerTags() {
    return {DCM_SpecificCharacterSet,
            DCM_SOPClassUID,
            DCM_SOPInstanceUID,
            DCM_StudyDate,
            DCM_SeriesDate,
            DCM_ContentDate,
            DCM_StudyTime,
            DCM_SeriesTime,
            DCM_ContentTime,
            DCM_AccessionNumber,
            DCM_Modality,
            DCM_ReferringPhysicianName,
            DCM_StudyDescription,
            DCM_SeriesDescription,
            DCM_PatientName,
            DCM_PatientID,
            DCM_PatientBirthDate,
            DCM_PatientSex,
            DCM_BodyPartExamined,
            DCM_ProtocolName,
            DCM_StudyInstanceUID,
            DCM_SeriesInstanceUID,
            DCM_StudyID,
            DCM_SeriesNumber,
            DCM_InstanceNumber,
            DCM_NumberOfFrames,
            DCM_Rows,
            DCM_Columns};
}

DcmTagKey behindHeader() {
    return {DCM_Columns.getGroup(), static_cast<Uint16>(DCM_Columns.getElement() + 1)};
}

std::string textBytes(const AttributeReader& attributes, const DcmTagKey& tag) {
    const AttributeReader::Value* const value = attributes.find(tag);
    return value != nullptr && isText(value->vr) ? value->bytes : std::string{};
}

std::optional<long long> number(const AttributeReader& attributes, const DcmTagKey& tag) {
    const AttributeReader::Value* const value = attributes.find(tag);
    if (value == nullptr || value->vr != EVR_US)
        return std::nullopt;
    return unsignedShort(value->bytes, value->littleEndian);
}

/// Returns nullopt as well for what the tables' number columns cannot hold.
std::optional<long long> whole(std::string_view text) {
    text.remove_prefix(text.starts_with('+') ? 1 : 0);
    std::int32_t value = 0;
    const auto* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc{} && stop == end ? std::optional<long long>{value} : std::nullopt;
}

ObjectHeader extract(const AttributeReader& attributes) {
    const TextDecoder decoder{textBytes(attributes, DCM_SpecificCharacterSet)};
    const auto text = [&](const DcmTagKey& tag, std::size_t width) {
        const AttributeReader::Value* const value = attributes.find(tag);
        return value == nullptr ? std::string{}
                                : decoder.decode(textBytes(attributes, tag), value->vr, width);
    };
    const auto uid = [&text](const DcmTagKey& tag) {
        return text(tag, AttributeReader::LongestValue);  // what is too long must fail, not fit
    };
    // The old form of a date, with points, as the new one: only that is found by.
    const auto date = [&text](const DcmTagKey& tag) {
        constexpr std::size_t AnyForm = 10;
        constexpr std::size_t Width = 8;
        auto plain = storedDate(text(tag, AnyForm));
        return plain ? std::move(*plain) : text(tag, Width);
    };
    ObjectHeader header{
        .patientId = text(DCM_PatientID, 64),
        .patientName = text(DCM_PatientName, 324),
        .birthDate = date(DCM_PatientBirthDate),
        .sex = text(DCM_PatientSex, 16),
        .studyInstanceUid = uid(DCM_StudyInstanceUID),
        .studyId = text(DCM_StudyID, 16),
        .studyDate = date(DCM_StudyDate),
        .studyTime = text(DCM_StudyTime, 16),
        .accessionNumber = text(DCM_AccessionNumber, 16),
        .studyDescription = text(DCM_StudyDescription, 64),
        .referringPhysicianName = text(DCM_ReferringPhysicianName, 324),
        .seriesInstanceUid = uid(DCM_SeriesInstanceUID),
        .modality = text(DCM_Modality, 16),
        .seriesNumber = text(DCM_SeriesNumber, 12),
        .seriesDescription = text(DCM_SeriesDescription, 64),
        .seriesDate = date(DCM_SeriesDate),
        .seriesTime = text(DCM_SeriesTime, 16),
        .bodyPartExamined = text(DCM_BodyPartExamined, 16),
        .protocolName = text(DCM_ProtocolName, 64),
        .sopInstanceUid = uid(DCM_SOPInstanceUID),
        .sopClassUid = uid(DCM_SOPClassUID),
        .instanceNumber = text(DCM_InstanceNumber, 12),
        .contentDate = date(DCM_ContentDate),
        .contentTime = text(DCM_ContentTime, 16),
        .pixelRows = number(attributes, DCM_Rows),
        .pixelColumns = number(attributes, DCM_Columns),
        .numberOfFrames = whole(text(DCM_NumberOfFrames, 12)),
        .transferSyntaxUid = {},
    };
    header.nameGroups = foldedGroups(header.patientName);
    header.numberInSeries = whole(header.instanceNumber).value_or(0);
    return header;
}

}  // namespace

HeaderReader::HeaderReader(TransferSyntax syntax, ElementVisitor* observer)
    : attributes_(syntax, headerTags(), behindHeader(), observer) {
    if (syntax.isDeflated())
        inflater_ = std::make_unique<Inflater>();
}

bool HeaderReader::take(std::span<const char> bytes) {
    if (!inflater_)
        return takeInflated(bytes);
    if (inflater_->inflate(bytes, [this](std::span<const char> inflated) {
            return takeInflated(inflated);
        }) == Inflater::State::Broken)
        throw HeaderFault{"The data set cannot be inflated"};
    return attributes_.isDone();
}

bool HeaderReader::takeInflated(std::span<const char> bytes) {
    taken_ += bytes.size();
    const bool isDone = attributes_.take(bytes);
    if (!isDone && taken_ > LongestHeader)
        throw HeaderFault{"The header of the object does not end"};
    return isDone;
}

ObjectHeader HeaderReader::header() const {
    attributes_.finish();
    if (inflater_ && inflater_->state() == Inflater::State::Open)
        throw HeaderFault{"The data set is cut off"};
    return extract(attributes_);
}

ObjectHeader readHeader(const std::filesystem::path& file) {
    ObjectFile object{file};
    try {
        return readHeader(object);
    } catch (const HeaderFault& fault) {
        throw std::runtime_error{file.string() + ": " + fault.what()};
    }
}

ObjectHeader readHeader(ObjectFile& object) {
    const TransferSyntax syntax{object.kind().transferSyntax};
    if (!syntax.isKnown())
        throw HeaderFault{"its transfer syntax is unknown"};
    HeaderReader reader{syntax};
    std::vector<char> block(BlockSize);
    for (std::size_t at = 0; at < object.size();) {
        const std::span part = std::span{block}.first(std::min(block.size(), object.size() - at));
        object.read(part);
        at += part.size();
        if (reader.take(part))
            break;
    }
    ObjectHeader header = reader.header();
    header.transferSyntaxUid = object.kind().transferSyntax;
    return header;
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
