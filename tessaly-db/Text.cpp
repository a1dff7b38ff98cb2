#include "tessaly-db/Text.h"

#include <iconv.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace tessaly::tool {

namespace {

// The boxes for names and passwords count UTF-16 units.
constexpr std::size_t BoxLimit = 16;

/// False where the text is no UTF-8.
bool toUtf16(std::string_view text, std::u16string& result) {
    result.resize(text.size());
    iconv_t converter = iconv_open("UTF-16LE", "UTF-8");
    auto* in = const_cast<char*>(text.data());  // iconv's prototype lacks const
    auto inLeft = text.size();
    auto* out = reinterpret_cast<char*>(result.data());
    auto outLeft = result.size() * sizeof(char16_t);
    const bool good = iconv(converter, &in, &inLeft, &out, &outLeft) != static_cast<std::size_t>(-1);
    iconv_close(converter);
    result.resize(result.size() - outLeft / sizeof(char16_t));
    return good;
}

bool isControl(char16_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0);
}

}  // namespace

void requireTypeable(std::string_view text, const std::string& what) {
    if (text.empty())
        throw std::runtime_error(what + " must not be empty");
    std::u16string units;
    if (!toUtf16(text, units))
        throw std::runtime_error(what + " is not valid UTF-8");
    if (std::any_of(units.begin(), units.end(), isControl))
        throw std::runtime_error(what + " must not have control characters");
    if (units.size() > BoxLimit)
        throw std::runtime_error(what + " is longer than " + std::to_string(BoxLimit) + " characters");
}

std::string oneLine(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
    return text;
}

std::optional<std::size_t> lengthOf(std::string_view text) {
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (std::all_of(text.begin(), text.end(), isAscii))
        return text.size();
    std::u16string units;
    if (!toUtf16(text, units))
        return std::nullopt;
    const auto isSecondHalf = [](char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; };
    return units.size() - static_cast<std::size_t>(std::count_if(units.begin(), units.end(), isSecondHalf));
}

}  // namespace tessaly::tool
