#pragma once

#include "tessalyd/archive/ArchiveIndex.h"
#include "decoder/Pool.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/services/QueryAccess.h"

namespace tessaly::tessalyd {

/// Everything that this server does for an association. What is given outlives the factory and what it makes.
[[nodiscard]] ServiceFactory allServices(ArchiveIndex& index, QueryAccess& queries, decoder::Pool& decoders);

}  // namespace tessaly::tessalyd
