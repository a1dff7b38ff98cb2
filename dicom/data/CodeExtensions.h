#pragma once

#include <optional>
#include <string>

namespace tessaly::dicom {

/// Text with escape sequences of the East Asian character sets as UTF-8: Japanese, Korean and simplified
/// Chinese, which the DICOM toolkit leaves to a conversion library that this system does not have. Nothing
/// when the text has no escape sequence or is in none of them.
[[nodiscard]] std::optional<std::string> fromCodeExtensions(const std::string& text);

}  // namespace tessaly::dicom
