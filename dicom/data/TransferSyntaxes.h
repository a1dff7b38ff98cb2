#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcxfer.h>

namespace tessaly::dicom {

[[nodiscard]] constexpr bool isUncompressed(E_TransferSyntax syntax) noexcept {
    return syntax == EXS_LittleEndianImplicit || syntax == EXS_LittleEndianExplicit ||
           syntax == EXS_BigEndianExplicit;
}

/// The syntaxes that objects come in, and so are in the archive.
[[nodiscard]] constexpr bool isArchived(E_TransferSyntax syntax) noexcept {
    const bool jpeg = syntax >= EXS_JPEGProcess1 && syntax <= EXS_JPEGProcess14SV1;
    const bool jpegLs = syntax == EXS_JPEGLSLossless || syntax == EXS_JPEGLSLossy;
    return isUncompressed(syntax) || jpeg || jpegLs || syntax == EXS_RLELossless;
}

}  // namespace tessaly::dicom
