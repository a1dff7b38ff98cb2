#include "dicom/data/TextDecoder.h"

#include <QUtf8StringView>
#include <algorithm>

#include "dicom/data/CodeExtensions.h"
#include "dicom/data/Padding.h"

namespace tessaly::dicom {

namespace {

constexpr char Escape = '\x1b';

/// Some devices name the only set that they use as if others might follow it.
std::string namedPlainly(const std::string& set) {
    constexpr std::string_view WithExtensions = "ISO 2022 IR ";
    if (set.starts_with(WithExtensions) && set.find('\\') == std::string::npos)
        return "ISO_IR " + set.substr(WithExtensions.size());
    return set;
}

bool isAscii(char c) {
    return static_cast<signed char>(c) >= 0;
}

/// The same bytes in every set there is.
bool isPlain(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return isAscii(c) && c != Escape; });
}

bool isUtf8(std::string_view text) {
    return QUtf8StringView{text.data(), static_cast<qsizetype>(text.size())}.isValidUtf8();
}

/// Each of several values without the blanks around it.
std::string withoutBlanksBetween(std::string_view text) {
    std::string result;
    for (;;) {
        const std::size_t length = text.find('\\');
        result += withoutBlanks(text.substr(0, length));
        if (length == std::string_view::npos)
            return result;
        result += '\\';
        text.remove_prefix(length + 1);
    }
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

/// The characters that end the effect of an escape sequence, besides controls. Returns null for
/// representations that the character set does not concern.
const char* delimitersOf(DcmEVR vr) {
    switch (vr) {
        case EVR_PN:
            return "\\^=";
        case EVR_LO:
        case EVR_SH:
        case EVR_UC:
            return "\\";
        case EVR_LT:
        case EVR_ST:
        case EVR_UT:
            return "";
        default:
            return nullptr;
    }
}

}  // namespace

bool isText(DcmEVR vr) noexcept {
    switch (vr) {
        case EVR_AE:
        case EVR_AS:
        case EVR_CS:
        case EVR_DA:
        case EVR_DS:
        case EVR_DT:
        case EVR_IS:
        case EVR_LO:
        case EVR_LT:
        case EVR_PN:
        case EVR_SH:
        case EVR_ST:
        case EVR_TM:
        case EVR_UC:
        case EVR_UI:
        case EVR_UR:
        case EVR_UT:
            return true;
        default:
            return false;
    }
}

TextDecoder::TextDecoder(std::string_view characterSets, std::string_view unreadable)
    : unreadable_(unreadable), converter_(std::make_unique<DcmSpecificCharacterSet>()) {
    const std::string sets = withoutBlanksBetween(characterSets);
    knowsEscapes_ = converter_->selectCharacterSet(namedPlainly(sets)).good();
    // The toolkit does not know all that may follow; what stays in the first set can be read nevertheless.
    if (!knowsEscapes_ && converter_->selectCharacterSet(namedPlainly(sets.substr(0, sets.find('\\')))).bad())
        converter_.reset();
}

/// A text that is not ASCII alone.
std::string TextDecoder::convert(const std::string& bytes, DcmEVR vr) const {
    if (const char* const delimiters = delimitersOf(vr)) {
        const bool hasEscapes = bytes.find(Escape) != std::string::npos;
        if (converter_ && (knowsEscapes_ || !hasEscapes)) {
            OFString converted;
            if (converter_->convertString(bytes.data(), bytes.size(), converted, delimiters).good() &&
                isUtf8({converted.c_str(), converted.length()}))
                return {converted.c_str(), converted.length()};
        }
        if (auto converted = fromCodeExtensions(bytes))
            return *std::move(converted);
    }
    return asciiOf(bytes, unreadable_);
}

std::string TextDecoder::decode(std::string value, DcmEVR vr, std::size_t width) const {
    if (!isPlain(value))
        value = convert(value, vr);
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    std::replace_if(value.begin(), value.end(), isControl, ' ');
    value = withoutBlanksBetween(value);
    cut(value, width);
    value.resize(value.find_last_not_of(' ') + 1);
    return value;
}

}  // namespace tessaly::dicom
