#pragma once

#include <cstdint>

#include "decoder/Fragments.h"
#include "decoder/PixelWriter.h"
#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::decoder {

/// The most that compressed images inside sequences, such as icons, may come to, in bytes.
constexpr std::uint64_t MostNestedPixels = std::uint64_t{16} << 20U;

/// Brings a data set from `from` into the native syntax `to`, its UIDs unchanged: pixel data is decoded frame
/// by frame and written at once; of all else the toolkit's tree is built. False if that cannot be done; what
/// was written until then is of no use. registerCodecs() comes before.
[[nodiscard]] bool convert(Bytes dataSet, dicom::TransferSyntax from, dicom::TransferSyntax to,
                           const Write& write);

}  // namespace tessaly::decoder
