#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <vector>

#include "tessalyd/association/Service.h"

namespace tessaly::tessalyd {

/// Answers each proposed presentation context and each extended negotiation by what the services offer.
/// Returns the contexts that are accepted.
std::vector<AcceptedContext> negotiate(T_ASC_Parameters* parameters, const Services& services);

}  // namespace tessaly::tessalyd
