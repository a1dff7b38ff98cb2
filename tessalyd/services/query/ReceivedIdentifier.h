#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <memory>

#include "tessalyd/association/Service.h"

namespace tessaly::tessalyd {

/// Takes the identifier of a C-FIND, C-MOVE or C-GET. Throws RequestFailure if it cannot be parsed or the
/// command's SOP class is not that of the presentation context; AssociationEnded if there is none.
[[nodiscard]] std::unique_ptr<DcmDataset> receiveIdentifier(const Request& request, Association& association);

}  // namespace tessaly::tessalyd
