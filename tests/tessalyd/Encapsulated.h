#pragma once

#include <QByteArrayList>
#include <vector>

#include "tests/tessalyd/Objects.h"

namespace tessaly::test {

/// An image as its header describes it, whatever its pixel data is.
struct ImageSpec {
    ObjectSpec object = {};
    int rows = 64;
    int columns = 64;
    int samples = 1;
    int bits = 16;
    int stored = 12;
    std::string photometric = "MONOCHROME2";
    int planar = 0;
    std::string frames = {};  ///< Number of Frames; empty: not said
    int representation = 0;   ///< 1: pixels are signed
    QByteArray extendedOffsets = {};

    [[nodiscard]] int frameSize() const { return (rows * columns * samples * bits + 7) / 8; }
};

/// A data set in explicit little endian, with pixel data of these fragments, whatever they are.
[[nodiscard]] QByteArray encapsulated(const ImageSpec& image, const QByteArrayList& fragments,
                                      const QByteArray& offsetTable = {});

/// A native object with these pixels, in little endian.
[[nodiscard]] std::unique_ptr<DcmFileFormat> nativeObject(const ImageSpec& image, const QByteArray& pixels);

/// Pixels of one frame: no two neighbours are alike, and no two seeds.
[[nodiscard]] QByteArray framePixels(const ImageSpec& image, int seed = 1);
/// All of one value.
[[nodiscard]] QByteArray flatPixels(const ImageSpec& image, int value = 0);

/// One frame as the toolkit encodes it.
[[nodiscard]] QByteArray encodedFrame(const ImageSpec& image, const QByteArray& pixels,
                                      E_TransferSyntax syntax);

/// The toolkit's own decoding of one frame that it has encoded.
[[nodiscard]] QByteArray decodedFrame(const ImageSpec& image, const QByteArray& frame,
                                      E_TransferSyntax syntax);

/// Even parts of a frame, the first of `first` bytes.
[[nodiscard]] QByteArrayList inParts(const QByteArray& frame, int first, int others);

/// Small objects whose decoding takes very long, or very much.
[[nodiscard]] QByteArray endlessJpeg();  ///< 338 bytes that the toolkit never gets through
[[nodiscard]] QByteArray manyLargeFrames(ImageSpec& image,
                                         int frames = 257);  ///< frames of 4096 x 4096 in JPEG-LS

}  // namespace tessaly::test
