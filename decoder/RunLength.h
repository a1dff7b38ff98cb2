#pragma once

#include <span>

#include "decoder/Fragments.h"
#include "decoder/ObjectLayout.h"

namespace tessaly::decoder {

/// Decodes one frame of run-length encoded pixels into `target`, which is as long as the frame, in little
/// endian. False if the frame is not exactly what the image describes: every byte of the target has been
/// written where it is true.
[[nodiscard]] bool decodeRunLength(Bytes frame, const ImageDescription& image,
                                   std::span<unsigned char> target);

}  // namespace tessaly::decoder
