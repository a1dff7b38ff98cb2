#pragma once

#include <string>
#include <string_view>

namespace tessaly::tessalyd {

enum class LineFeeds {
    Escaped,
    Kept,  ///< each line but the first begins with four blanks, so that none can pass for an entry of its own
};

/// The text as it may be shown on a terminal or sent over the session bus: valid UTF-8 without controls.
/// Controls, line and paragraph separators, what reorders text on a terminal, and bytes that are not UTF-8
/// become `\x` and two hexadecimal digits a byte; a backslash becomes two. Different texts stay different.
[[nodiscard]] std::string printable(std::string_view text, LineFeeds lineFeeds = LineFeeds::Escaped);

}  // namespace tessaly::tessalyd
