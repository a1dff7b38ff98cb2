#include "dicom/data/FileMeta.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace tessaly::dicom {

namespace {

constexpr std::size_t Preamble = 128;

void append(std::vector<char>& bytes, std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void appendNumber(std::vector<char>& bytes, std::size_t value, int size) {
    for (int i = 0; i < size; ++i)
        bytes.push_back(static_cast<char>(value >> (8U * static_cast<unsigned>(i)) & 0xffU));
}

/// An element of group 0002 without its value, as explicit VR little endian has it.
void appendHead(std::vector<char>& bytes, std::uint16_t element, std::string_view vr, std::size_t length) {
    appendNumber(bytes, 0x0002, 2);
    appendNumber(bytes, element, 2);
    append(bytes, vr);
    const bool isLong = vr == "OB";
    if (isLong)
        appendNumber(bytes, 0, 2);  // reserved
    appendNumber(bytes, length, isLong ? 4 : 2);
}

void appendText(std::vector<char>& bytes, std::uint16_t element, std::string_view vr,
                std::string_view value) {
    const std::size_t length = value.size() + value.size() % 2;
    if (length > std::numeric_limits<std::uint16_t>::max())
        throw std::length_error{"a value of the file meta information is too long"};
    appendHead(bytes, element, vr, length);
    append(bytes, value);
    if (length > value.size())
        bytes.push_back(vr == "UI" ? '\0' : ' ');
}

}  // namespace

std::vector<char> encoded(const FileMeta& meta) {
    std::vector<char> group;
    group.reserve(512);
    appendHead(group, 0x0001, "OB", 2);
    append(group, {"\0\1", 2});
    appendText(group, 0x0002, "UI", meta.sopClassUid);
    appendText(group, 0x0003, "UI", meta.sopInstanceUid);
    appendText(group, 0x0010, "UI", meta.transferSyntaxUid);
    appendText(group, 0x0012, "UI", OFFIS_IMPLEMENTATION_CLASS_UID);
    appendText(group, 0x0013, "SH", OFFIS_DTK_IMPLEMENTATION_VERSION_NAME);
    appendText(group, 0x0016, "AE", meta.sourceAeTitle);

    std::vector<char> bytes(Preamble);
    bytes.reserve(Preamble + 16 + group.size());
    append(bytes, "DICM");
    appendHead(bytes, 0x0000, "UL", 4);
    appendNumber(bytes, group.size(), 4);
    bytes.insert(bytes.end(), group.begin(), group.end());
    return bytes;
}

}  // namespace tessaly::dicom
