#pragma once

#include <cstddef>
#include <span>

namespace tessaly::decoder {

/// Turns luminance and two differences of colour (YBR_FULL), unsigned and colour by pixel, into red, green
/// and blue. A sample has `bits` bits, in one byte, or in two where `bytes` is 2, little endian.
void toRgb(std::span<unsigned char> pixels, std::size_t bytes, unsigned bits);

}  // namespace tessaly::decoder
