#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "decoder/Fragments.h"

namespace tessaly::decoder {

enum class Coding { Jpeg, JpegLs };

/// What a compressed stream says of itself.
struct JpegStream {
    unsigned precision = 0;  ///< bits of a sample
    unsigned rows = 0;
    unsigned columns = 0;
    unsigned components = 0;
    std::size_t size = 0;  ///< up to the end-of-image marker and with it
};

/// Walks the marker segments of one stream from its beginning to its end-of-image marker. Returns nullopt if
/// there is anything but exactly one whole stream of that coding, with one byte or zeros behind it at
/// most: a decoder is given nothing else. Takes time proportional to the bytes.
[[nodiscard]] std::optional<JpegStream> readJpegStream(Bytes stream, Coding coding);

}  // namespace tessaly::decoder
