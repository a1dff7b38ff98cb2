#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "decoder/Fragments.h"

namespace tessaly::decoder {

/// What a JPEG 2000 code stream says of itself, with either block coder.
struct CodeStream {
    std::uint32_t rows = 0;
    std::uint32_t columns = 0;
    unsigned components = 0;
    unsigned precision = 0;  ///< bits of a sample; all components have the same
    bool isSigned = false;   ///< the same of all of them
    bool hasColourTransform =
        false;             ///< what is coded is not what was seen: decoding gives red, green and blue
    std::size_t size = 0;  ///< up to the end-of-codestream marker and with it
};

/// Walks the main header of one code stream and the lengths of its tile-parts, to its end. Returns nullopt if
/// there is anything but exactly one whole stream, with one byte or zeros behind it at most, if a tile has no
/// part, if its components are not all alike, or if the image does not begin at its first tile's corner.
/// Takes time proportional to the bytes.
[[nodiscard]] std::optional<CodeStream> readCodeStream(Bytes stream);

}  // namespace tessaly::decoder
