#pragma once

#include <algorithm>
#include <string_view>

namespace tessaly::dicom {

/// Text without the blanks around it, and without the zeros that pad UIDs.
[[nodiscard]] inline std::string_view withoutBlanks(std::string_view text) noexcept {
    constexpr std::string_view Blanks{" \0", 2};
    text.remove_prefix(std::min(text.find_first_not_of(Blanks), text.size()));
    return text.substr(0, text.find_last_not_of(Blanks) + 1);
}

}  // namespace tessaly::dicom
