#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessaly::base {

// Numbers as engines and drivers write them: the whole text, a point before the fraction, no blanks, whatever
// the locale. Nothing is returned for any other text, for infinity, and for what the type cannot hold.
// What people type into a box is read by console/ui/TypedNumber.

/// With or without a fraction and an exponent.
[[nodiscard]] std::optional<double> decimalNumber(std::string_view text) noexcept;
/// Nothing for a text with a fraction or an exponent, either.
[[nodiscard]] std::optional<long long> wholeNumber(std::string_view text) noexcept;
/// A whole or a decimal number; a fraction is cut.
[[nodiscard]] std::optional<long long> wholePart(std::string_view text) noexcept;

/// A decimal number, blanks around it or not, in the one form that all ways of writing it have in common,
/// digit by digit: no exponent, no plus, no zeros and no blanks around it. Nothing where the text is no
/// number.
[[nodiscard]] std::optional<std::string> plainNumber(std::string_view text);

}  // namespace tessaly::base
