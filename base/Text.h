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

}  // namespace tessaly::base
