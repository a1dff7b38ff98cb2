#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcxfer.h>

namespace tessaly::decoder {

/// True for a compressed syntax that there is a decoder for.
[[nodiscard]] constexpr bool isDecodable(E_TransferSyntax syntax) noexcept {
    switch (syntax) {
        case EXS_JPEGProcess1:
        case EXS_JPEGProcess2_4:
        case EXS_JPEGProcess6_8:
        case EXS_JPEGProcess10_12:
        case EXS_JPEGProcess14:
        case EXS_JPEGProcess14SV1:
        case EXS_JPEGLSLossless:
        case EXS_JPEGLSLossy:
        case EXS_RLELossless:
            return true;
        default:
            return false;
    }
}

/// True for a syntax whose pixel data is not compressed: what everything is converted into.
[[nodiscard]] constexpr bool isNative(E_TransferSyntax syntax) noexcept {
    return syntax == EXS_LittleEndianImplicit || syntax == EXS_LittleEndianExplicit ||
           syntax == EXS_BigEndianExplicit;
}

}  // namespace tessaly::decoder
