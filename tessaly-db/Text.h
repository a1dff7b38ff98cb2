#pragma once

#include <string>
#include <string_view>

namespace tessaly::tool {

/// Throws std::runtime_error, naming the text by `what`, unless it is something that can be typed into the
/// console's boxes: UTF-8, not empty, no control character, at most as many characters as they take.
void requireTypeable(std::string_view text, const std::string& what);

}  // namespace tessaly::tool
