#include "dicom/data/CodeExtensions.h"

#include <iconv.h>

#include <string_view>

namespace tessaly::dicom {

namespace {

/// Sets that stay in the upper half of the bytes: without its announcement the text is in a plain encoding.
struct Announced {
    std::string_view escape;
    const char* encoding;
};
constexpr Announced Korean{"\x1b$)C", "EUC-KR"};
constexpr Announced Chinese{"\x1b$)A", "GB2312"};

std::optional<std::string> convert(std::string text, const char* encoding) {
    iconv_t converter = ::iconv_open("UTF-8", encoding);
    if (converter == reinterpret_cast<iconv_t>(-1))
        return std::nullopt;
    std::string converted(text.size() * 4, '\0');
    char* from = text.data();
    char* to = converted.data();
    std::size_t fromLeft = text.size();
    std::size_t toLeft = converted.size();
    const bool good = ::iconv(converter, &from, &fromLeft, &to, &toLeft) != static_cast<std::size_t>(-1);
    ::iconv_close(converter);
    if (!good)
        return std::nullopt;
    converted.resize(converted.size() - toLeft);
    return converted;
}

/// Katakana in the upper half of the bytes, announced as they are in seven bits.
std::string withAnnouncedKatakana(const std::string& text) {
    std::string announced;
    for (const char c : text) {
        const bool katakana = (static_cast<unsigned char>(c) & 0x80U) != 0;
        if (katakana)
            (announced += "\x1b(I") += static_cast<char>(static_cast<unsigned char>(c) & 0x7fU);
        else
            announced += c;
        if (katakana)
            announced += "\x1b(B";
    }
    return announced;
}

std::string without(std::string text, std::string_view part) {
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at))
        text.erase(at, part.size());
    return text;
}

}  // namespace

std::optional<std::string> fromCodeExtensions(const std::string& text) {
    if (text.find('\x1b') == std::string::npos)
        return std::nullopt;
    for (const Announced& set : {Korean, Chinese}) {
        if (text.find(set.escape) != std::string::npos)
            return convert(without(text, set.escape), set.encoding);
    }
    for (const char* japanese : {"ISO-2022-JP-2", "ISO-2022-JP-3"}) {
        if (auto converted = convert(withAnnouncedKatakana(text), japanese))
            return converted;
    }
    return std::nullopt;
}

}  // namespace tessaly::dicom
