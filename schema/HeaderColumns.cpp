#include "schema/HeaderColumns.h"

#include <algorithm>
#include <array>

namespace tessaly::schema {

namespace {

using db::Param;
using Header = const dicom::ObjectHeader&;

Param text(const std::string& value) {
    return db::varchar(value);
}

Param number(std::optional<long long> value) {
    return value ? db::integer(*value) : db::null(db::Type::Integer);
}

constexpr std::array Patient{
    HeaderColumn{"Name", [](Header h) { return text(h.patientName); }},
    HeaderColumn{"BirthDate", [](Header h) { return text(h.birthDate); }},
    HeaderColumn{"Sex", [](Header h) { return text(h.sex); }},
    HeaderColumn{"NameAlphabetic", [](Header h) { return text(h.nameGroups[0]); }},
    HeaderColumn{"NameIdeographic", [](Header h) { return text(h.nameGroups[1]); }},
    HeaderColumn{"NamePhonetic", [](Header h) { return text(h.nameGroups[2]); }},
};

constexpr std::array Study{
    HeaderColumn{"StudyID", [](Header h) { return text(h.studyId); }},
    HeaderColumn{"StudyDate", [](Header h) { return text(h.studyDate); }},
    HeaderColumn{"StudyTime", [](Header h) { return text(h.studyTime); }},
    HeaderColumn{"AccessionNumber", [](Header h) { return text(h.accessionNumber); }},
    HeaderColumn{"Description", [](Header h) { return text(h.studyDescription); }},
    HeaderColumn{"ReferringPhysicianName", [](Header h) { return text(h.referringPhysicianName); }},
};

constexpr std::array Series{
    HeaderColumn{"Modality", [](Header h) { return text(h.modality); }},
    HeaderColumn{"SeriesNumber", [](Header h) { return text(h.seriesNumber); }},
    HeaderColumn{"Description", [](Header h) { return text(h.seriesDescription); }},
    HeaderColumn{"SeriesDate", [](Header h) { return text(h.seriesDate); }},
    HeaderColumn{"SeriesTime", [](Header h) { return text(h.seriesTime); }},
    HeaderColumn{"BodyPartExamined", [](Header h) { return text(h.bodyPartExamined); }},
    HeaderColumn{"ProtocolName", [](Header h) { return text(h.protocolName); }},
};

constexpr std::array Image{
    HeaderColumn{"SOPClassUID", [](Header h) { return text(h.sopClassUid); }},
    HeaderColumn{"TransferSyntaxUID", [](Header h) { return text(h.transferSyntaxUid); }},
    HeaderColumn{"InstanceNumber", [](Header h) { return text(h.instanceNumber); }},
    HeaderColumn{"NumberInSeries", [](Header h) { return number(h.numberInSeries); }},
    HeaderColumn{"ContentDate", [](Header h) { return text(h.contentDate); }},
    HeaderColumn{"ContentTime", [](Header h) { return text(h.contentTime); }},
    HeaderColumn{"PixelRows", [](Header h) { return number(h.pixelRows); }},
    HeaderColumn{"PixelColumns", [](Header h) { return number(h.pixelColumns); }},
    HeaderColumn{"NumberOfFrames", [](Header h) { return number(h.numberOfFrames); }},
};

std::string join(std::span<const HeaderColumn> columns, std::string_view behindEach) {
    std::string list;
    for (const HeaderColumn& column : columns)
        list.append(list.empty() ? "" : ", ").append(column.name).append(behindEach);
    return list;
}

std::string textOf(const Param& value) {
    if (const auto* whole = std::get_if<long long>(&value.value))
        return std::to_string(*whole);
    const auto* text = std::get_if<std::string>(&value.value);
    return text != nullptr ? *text : std::string{};
}

}  // namespace

std::span<const HeaderColumn> patientColumns() {
    return Patient;
}
std::span<const HeaderColumn> studyColumns() {
    return Study;
}
std::span<const HeaderColumn> seriesColumns() {
    return Series;
}
std::span<const HeaderColumn> imageColumns() {
    return Image;
}

std::string namesOf(std::span<const HeaderColumn> columns) {
    return join(columns, "");
}

std::string assignmentsOf(std::span<const HeaderColumn> columns) {
    return join(columns, "=?");
}

std::string markers(std::size_t count) {
    std::string list;
    for (std::size_t i = 0; i < count; ++i)
        list += i == 0 ? "?" : ",?";
    return list;
}

std::vector<Param> valuesOf(std::span<const HeaderColumn> columns, const dicom::ObjectHeader& header,
                            std::initializer_list<Param> more) {
    std::vector<Param> values;
    values.reserve(columns.size() + more.size());
    for (const HeaderColumn& column : columns)
        values.push_back(column.value(header));
    values.insert(values.end(), more);
    return values;
}

bool differs(db::ResultSet& row, std::span<const HeaderColumn> columns, const dicom::ObjectHeader& header) {
    return std::any_of(columns.begin(), columns.end(), [&](const HeaderColumn& column) {
        return row.text(column.name) != textOf(column.value(header));
    });
}

}  // namespace tessaly::schema
