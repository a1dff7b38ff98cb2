#include "dicom/DataSetText.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <QUtf8StringView>
#include <algorithm>

#include "dicom/CodeExtensions.h"

namespace tessaly::dicom {

namespace {

/// Some devices name the only set that they use as if others might follow it.
void nameOnlySetPlainly(DcmDataset& dataset) {
    OFString found;
    dataset.findAndGetOFStringArray(DCM_SpecificCharacterSet, found);
    const std::string_view set{found.c_str(), found.length()};
    constexpr std::string_view WithExtensions = "ISO 2022 IR ";
    if (set.starts_with(WithExtensions) && set.find('\\') == std::string_view::npos)
        dataset.putAndInsertOFStringArray(DCM_SpecificCharacterSet,
                                          "ISO_IR " + found.substr(WithExtensions.size()));
}

bool convert(DcmDataset& dataset) {
    nameOnlySetPlainly(dataset);
    return dataset.convertToUTF8().good();
}

bool isAscii(char c) {
    return static_cast<signed char>(c) >= 0;
}

std::string asciiOf(const std::string& text, const std::string& unreadable) {
    std::string result;
    for (const char c : text) {
        if (isAscii(c))
            result += c;
        else
            result += unreadable;
    }
    return result;
}

void cut(std::string& value, std::size_t width) {
    if (value.size() <= width)
        return;
    const auto startsCharacter = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
    std::size_t end = 0;
    for (std::size_t characters = 0; end < value.size(); ++end) {
        if (startsCharacter(value[end]) && characters++ == width)
            break;
    }
    value.resize(end);
}

}  // namespace

DataSetText::DataSetText(DcmDataset& dataset, std::string_view unreadable)
    : dataset_(dataset), unreadable_(unreadable), utf8_(convert(dataset)) {}

std::string DataSetText::value(const DcmTagKey& tag, std::size_t width) const {
    OFString found;
    dataset_.findAndGetOFStringArray(tag, found);
    std::string value{found.c_str(), found.length()};
    if (auto converted = utf8_ ? std::nullopt : fromCodeExtensions(value))
        value = std::move(*converted);
    else if (!utf8_ || !QUtf8StringView{value.data(), static_cast<qsizetype>(value.size())}.isValidUtf8())
        value = asciiOf(value, unreadable_);
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    std::replace_if(value.begin(), value.end(), isControl, ' ');
    value.erase(0, std::min(value.find_first_not_of(' '), value.size()));
    cut(value, width);
    value.resize(value.find_last_not_of(' ') + 1);
    return value;
}

}  // namespace tessaly::dicom
