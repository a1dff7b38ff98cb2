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

constexpr bool Text = true;
constexpr bool Number = false;

constexpr std::array Patient{
    HeaderColumn{"Name", Text, [](Header h) { return text(h.patientName); }},
    HeaderColumn{"BirthDate", Text, [](Header h) { return text(h.birthDate); }},
    HeaderColumn{"Sex", Text, [](Header h) { return text(h.sex); }},
    HeaderColumn{"NameAlphabetic", Text, [](Header h) { return text(h.nameGroups[0]); }},
    HeaderColumn{"NameIdeographic", Text, [](Header h) { return text(h.nameGroups[1]); }},
    HeaderColumn{"NamePhonetic", Text, [](Header h) { return text(h.nameGroups[2]); }},
};

constexpr std::array Study{
    HeaderColumn{"StudyID", Text, [](Header h) { return text(h.studyId); }},
    HeaderColumn{"StudyDate", Text, [](Header h) { return text(h.studyDate); }},
    HeaderColumn{"StudyTime", Text, [](Header h) { return text(h.studyTime); }},
    HeaderColumn{"AccessionNumber", Text, [](Header h) { return text(h.accessionNumber); }},
    HeaderColumn{"Description", Text, [](Header h) { return text(h.studyDescription); }},
    HeaderColumn{"ReferringPhysicianName", Text, [](Header h) { return text(h.referringPhysicianName); }},
};

constexpr std::array Series{
    HeaderColumn{"Modality", Text, [](Header h) { return text(h.modality); }},
    HeaderColumn{"SeriesNumber", Text, [](Header h) { return text(h.seriesNumber); }},
    HeaderColumn{"Description", Text, [](Header h) { return text(h.seriesDescription); }},
    HeaderColumn{"SeriesDate", Text, [](Header h) { return text(h.seriesDate); }},
    HeaderColumn{"SeriesTime", Text, [](Header h) { return text(h.seriesTime); }},
    HeaderColumn{"BodyPartExamined", Text, [](Header h) { return text(h.bodyPartExamined); }},
    HeaderColumn{"ProtocolName", Text, [](Header h) { return text(h.protocolName); }},
};

constexpr std::array Image{
    HeaderColumn{"SOPClassUID", Text, [](Header h) { return text(h.sopClassUid); }},
    HeaderColumn{"TransferSyntaxUID", Text, [](Header h) { return text(h.transferSyntaxUid); }},
    HeaderColumn{"InstanceNumber", Text, [](Header h) { return text(h.instanceNumber); }},
    HeaderColumn{"NumberInSeries", Number, [](Header h) { return number(h.numberInSeries); }},
    HeaderColumn{"ContentDate", Text, [](Header h) { return text(h.contentDate); }},
    HeaderColumn{"ContentTime", Text, [](Header h) { return text(h.contentTime); }},
    HeaderColumn{"PixelRows", Number, [](Header h) { return number(h.pixelRows); }},
    HeaderColumn{"PixelColumns", Number, [](Header h) { return number(h.pixelColumns); }},
    HeaderColumn{"NumberOfFrames", Number, [](Header h) { return number(h.numberOfFrames); }},
    HeaderColumn{"FileSize", Number, [](Header h) { return number(h.fileSize); }},
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

std::string fillingsOf(std::span<const HeaderColumn> columns) {
    std::string list;
    for (const HeaderColumn& column : columns) {
        const std::string name{column.name};
        // A number that takes no NULL is 0 where it is not known.
        const std::string known = column.isText ? name : "NULLIF(" + name + ",0)";
        list.append(list.empty() ? "" : ", ").append(name).append("=COALESCE(").append(known).append(",?)");
    }
    return list;
}

std::string lackOf(std::span<const HeaderColumn> columns, std::string_view table) {
    std::string list;
    for (const HeaderColumn& column : columns) {
        if (column.isText)
            list.append(list.empty() ? "" : " OR ")
                .append(table)
                .append(".")
                .append(column.name)
                .append(" IS NULL");
    }
    return list;
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
