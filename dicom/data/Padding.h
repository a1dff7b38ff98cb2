#pragma once

#include <string_view>

#include "base/Text.h"

namespace tessaly::dicom {

/// Text without the blanks around it, and without the zeros that pad UIDs.
[[nodiscard]] inline std::string_view withoutBlanks(std::string_view text) noexcept {
    return base::trimmed(text, {" \0", 2});
}

}  // namespace tessaly::dicom
