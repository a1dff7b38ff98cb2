#pragma once

#include <array>
#include <string>
#include <string_view>

namespace tessaly::dicom {

/// UTF-8 text as names are compared: without case and without the accents of Latin, Greek and Cyrillic
/// letters.
[[nodiscard]] std::string folded(std::string_view text);

/// The alphabetic, the ideographic and the phonetic group of a person's name, folded, each without the blanks
/// around its components and without trailing delimiters; 324 characters of it at most.
[[nodiscard]] std::array<std::string, 3> foldedGroups(std::string_view name);

}  // namespace tessaly::dicom
