#include "tessalyd/Printable.h"

#include <array>

namespace tessaly::tessalyd {

namespace {

struct Character {
    char32_t code = 0;
    std::size_t size = 0;  ///< in bytes; 0 where the text does not begin with a UTF-8 character
};

Character firstOf(std::string_view text) {
    struct Form {
        unsigned char mask, lead;
        char32_t least;  // a smaller one has a shorter form, which is the only valid one
    };
    constexpr std::array<Form, 4> Forms{
        {{0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}}};
    const auto byte = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    for (std::size_t more = 0; more < Forms.size(); ++more) {
        const Form& form = Forms[more];
        if ((byte(0) & form.mask) != form.lead)
            continue;
        if (text.size() <= more)
            return {};
        char32_t code = byte(0) & static_cast<unsigned char>(~form.mask);
        for (std::size_t i = 1; i <= more; ++i) {
            if ((byte(i) & 0xc0U) != 0x80U)
                return {};
            code = code << 6U | (byte(i) & 0x3fU);
        }
        const bool isSurrogate = code >= 0xd800 && code < 0xe000;
        return code < form.least || isSurrogate || code > 0x10ffff ? Character{} : Character{code, more + 1};
    }
    return {};
}

bool isPrintable(char32_t code) {
    const auto isIn = [code](char32_t first, char32_t last) { return code >= first && code <= last; };
    return !isIn(0, 0x1f) && !isIn(0x7f, 0x9f) && !isIn(0x200e, 0x200f) && !isIn(0x2028, 0x202e) &&
           !isIn(0x2066, 0x2069);
}

void appendEscaped(std::string& result, std::string_view bytes) {
    constexpr std::string_view Digits = "0123456789abcdef";
    for (const char c : bytes) {
        const auto value = static_cast<unsigned char>(c);
        result += "\\x";
        result += Digits[value >> 4U];
        result += Digits[value & 0xfU];
    }
}

}  // namespace

std::string printable(std::string_view text, LineFeeds lineFeeds) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Character next = firstOf(text);
        const std::string_view bytes = text.substr(0, next.size == 0 ? 1 : next.size);
        if (bytes == "\\")
            result += "\\\\";
        else if (bytes == "\n" && lineFeeds == LineFeeds::Kept)
            result += "\n    ";
        else if (next.size == 0 || !isPrintable(next.code))
            appendEscaped(result, bytes);
        else
            result += bytes;
        text.remove_prefix(bytes.size());
    }
    return result;
}

}  // namespace tessaly::tessalyd
