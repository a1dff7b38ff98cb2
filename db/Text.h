#pragma once

#include <algorithm>
#include <string_view>

namespace tessaly::db::detail {

/// Compares names of tables and columns: ASCII, without regard to case, independent of the locale.
[[nodiscard]] inline bool sameName(std::string_view a, std::string_view b) noexcept {
    constexpr auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [=](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace tessaly::db::detail
