#pragma once

#include <optional>
#include <string_view>

namespace tessaly::db {

// Numbers as engines and drivers write them: the whole text, a point before the fraction, no blanks, whatever
// the locale. Nothing is returned for any other text, for infinity, and for what the type cannot hold.

[[nodiscard]] std::optional<double> toNumber(std::string_view text) noexcept;
/// Nothing for a text with a fraction or an exponent, either.
[[nodiscard]] std::optional<long long> toWholeNumber(std::string_view text) noexcept;
/// A fraction is cut.
[[nodiscard]] std::optional<long long> toInteger(std::string_view text) noexcept;

}  // namespace tessaly::db
