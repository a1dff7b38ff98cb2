#pragma once

#include <QByteArray>

#include "tests/tessalyd/Encapsulated.h"

namespace tessaly::test {

/// How a frame is coded, apart from what its image says.
struct WaveletSpec {
    int precision = 0;  ///< bits of a sample; 0: those that are stored
    bool isSigned = false;
    bool transform = false;  ///< of colours
    bool lossy = false;
    int tile = 0;  ///< columns and rows of a tile; 0: all in one
};

/// One frame, colour by pixel and in little endian, as a JPEG 2000 code stream.
[[nodiscard]] QByteArray waveletFrame(const ImageSpec& image, const QByteArray& pixels,
                                      const WaveletSpec& spec = {});

}  // namespace tessaly::test
