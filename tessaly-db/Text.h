#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tessaly::tool {

/// Throws std::runtime_error, naming the text by `what`, unless it is something that can be typed into the
/// console's boxes: UTF-8, not empty, no control character, at most as many characters as they take.
void requireTypeable(std::string_view text, const std::string& what);

/// A text of several lines, as a driver's may have, as one.
[[nodiscard]] std::string oneLine(std::string text);

/// Text of a database or a file system, which on a terminal is not to do anything.
[[nodiscard]] std::string printable(std::string text);

/// The number of characters; nothing where the text is no UTF-8.
[[nodiscard]] std::optional<std::size_t> lengthOf(std::string_view text);

}  // namespace tessaly::tool
