#pragma once

#include <string>
#include <string_view>

namespace tessaly::dicom {

/// For dumps: everything but printable ASCII as \xHH.
[[nodiscard]] std::string printableAscii(std::string_view bytes);

/// Appends so many hexadecimal digits.
void appendHexadecimal(std::string& text, unsigned value, int digits);

}  // namespace tessaly::dicom
