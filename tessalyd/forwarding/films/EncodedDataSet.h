#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <vector>

#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::tessalyd::films {

/// A data set as it goes over the wire, its sequences with lengths. Throws std::runtime_error.
[[nodiscard]] std::vector<char> encoded(DcmDataset& dataSet, dicom::TransferSyntax syntax);

}  // namespace tessaly::tessalyd::films
