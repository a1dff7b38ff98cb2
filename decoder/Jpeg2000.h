#pragma once

#include <span>

#include "decoder/CodeStream.h"
#include "decoder/ObjectLayout.h"

namespace tessaly::decoder {

/// Decodes one code stream, which is `described`, into `target`, which is as long as a frame of the image, in
/// little endian and colour by pixel. False if the library cannot, or if what it gives is anything else than
/// the image describes.
[[nodiscard]] bool decodeJpeg2000(Bytes stream, const CodeStream& described, const ImageDescription& image,
                                  std::span<unsigned char> target);

}  // namespace tessaly::decoder
