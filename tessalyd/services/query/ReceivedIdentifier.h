#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <memory>

#include "tessalyd/association/Service.h"

namespace tessaly::tessalyd {

/// Takes the identifier of a C-FIND, C-MOVE or C-GET; a request without one is none to the toolkit, and has
/// ended its association before. Throws RequestFailure where it cannot be parsed or the command's SOP class
/// is not that of the presentation context; AssociationEnded.
[[nodiscard]] std::unique_ptr<DcmDataset> receiveIdentifier(const Request& request, Requester& requester);

}  // namespace tessaly::tessalyd
