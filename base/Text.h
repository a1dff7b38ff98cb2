#pragma once

#include <algorithm>
#include <string_view>

namespace tessaly::base {

/// The text without the characters of `blanks` at its beginning and its end.
[[nodiscard]] constexpr std::string_view trimmed(std::string_view text,
                                                 std::string_view blanks = " ") noexcept {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

/// Compares names of tables and columns: ASCII, without regard to case, independent of the locale.
[[nodiscard]] inline bool sameName(std::string_view a, std::string_view b) noexcept {
    constexpr auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [=](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace tessaly::base
