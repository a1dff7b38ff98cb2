#pragma once

#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::decoder {

/// True for a syntax whose pixel data is not compressed: what everything is converted into.
[[nodiscard]] inline bool isNative(dicom::TransferSyntax syntax) noexcept {
    return dicom::isUncompressed(syntax);
}

/// True for any other syntax that there is a decoder for.
[[nodiscard]] inline bool isDecodable(dicom::TransferSyntax syntax) noexcept {
    return syntax.coding() != dicom::PixelCoding::Other && !isNative(syntax);
}

}  // namespace tessaly::decoder
