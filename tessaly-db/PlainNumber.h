#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessaly::tool {

/// A decimal number in the one form that all ways of writing it have in common, digit by digit: no exponent,
/// no zeros and no blanks around it. Nothing where the text is no number.
[[nodiscard]] std::optional<std::string> plainNumber(std::string_view text);

}  // namespace tessaly::tool
