#pragma once

#include "dicom/ObjectHeader.h"

namespace tessaly::tessalyd {

using dicom::isUid;
using dicom::ObjectHeader;

/// As dicom::readHeader, for an object that comes: shows the header in the log where that is asked for, and
/// throws StoreFailure.
[[nodiscard]] std::optional<ObjectHeader> readHeader(std::span<const char> data, E_TransferSyntax syntax,
                                                     bool complete);

}  // namespace tessaly::tessalyd
