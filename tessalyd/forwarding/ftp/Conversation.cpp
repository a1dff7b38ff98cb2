#include "tessalyd/forwarding/ftp/Conversation.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "base/Text.h"

namespace tessaly::tessalyd::ftp {

namespace {

/// No honest reply has so many.
constexpr int MostLines = 1000;

/// The code of a line that ends a reply.
std::optional<int> finalCode(std::string_view line) {
    int code = 0;
    const auto [end, fault] =
        std::from_chars(line.data(), line.data() + std::min<std::size_t>(3, line.size()), code);
    const bool isCode = fault == std::errc{} && end == line.data() + 3 && code >= 100;
    return isCode && (line.size() == 3 || line[3] != '-') ? std::optional{code} : std::nullopt;
}

bool contains(std::string_view text, std::string_view words) {
    for (; text.size() >= words.size(); text.remove_prefix(1))
        if (base::sameName(text.substr(0, words.size()), words))
            return true;
    return false;
}

/// How servers say that others have all the places.
bool tellsOfTooMany(std::string_view line) {
    constexpr std::array<std::string_view, 5> Words{"too many", "maximum", "connections", "connected",
                                                    "limit"};
    return std::any_of(Words.begin(), Words.end(),
                       [line](std::string_view words) { return contains(line, words); });
}

}  // namespace

void Conversation::sent(std::string_view command) {
    verb_ = command.substr(0, command.find_first_of(" \r\n"));
    code_ = 0;
    lines_ = 0;
    saysTooMany_ = false;
    if (verb_ == "USER")
        isNew_ = true;
}

bool Conversation::received(std::string_view line) {
    if (++lines_ > MostLines)
        return false;
    line = base::trimmed(line, "\r\n");
    saysTooMany_ = saysTooMany_ || tellsOfTooMany(line);
    return concludes(line);
}

bool Conversation::concludes(std::string_view line) {
    const auto code = finalCode(line);
    if (!code)
        return true;
    code_ = *code;
    if (verb_ != "SIZE" || !expectedSize_)
        return true;
    if (code_ == 500 || code_ == 502)
        lacksSize_ = true;
    if (code_ != 213)
        return true;
    const auto number = base::trimmed(line.substr(3));
    std::uint64_t size = 0;
    const auto [end, fault] = std::from_chars(number.data(), number.data() + number.size(), size);
    sizeDiffers_ = fault == std::errc{} && size != *expectedSize_;
    return !sizeDiffers_;
}

}  // namespace tessaly::tessalyd::ftp
