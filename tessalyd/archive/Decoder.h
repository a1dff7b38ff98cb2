#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <cstddef>

#include "tessalyd/archive/ArchiveFile.h"

namespace tessaly::tessalyd {

/// The decoders of compressed pixel data; one of these is to live while any is used.
class Decoders {
  public:
    Decoders();
    ~Decoders();
    Decoders(const Decoders&) = delete;
    Decoders& operator=(const Decoders&) = delete;

    /// What decoded objects are written in.
    static constexpr E_TransferSyntax Target = EXS_LittleEndianExplicit;

    /// True for a compressed syntax that there is a decoder for.
    [[nodiscard]] static bool has(E_TransferSyntax syntax) noexcept;

    /// Writes the object in `source`, whose data set begins at `dataSetAt`, decoded and with its UIDs
    /// unchanged. False when its pixel data cannot be decoded. Throws std::system_error when `source` cannot be
    /// read or `target` cannot be written.
    [[nodiscard]] static bool decode(const ArchiveFile& source, std::size_t dataSetAt, ArchiveFile& target);
};

}  // namespace tessaly::tessalyd
