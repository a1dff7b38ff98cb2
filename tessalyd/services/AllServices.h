#pragma once

#include "decoder/Pool.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/services/retrieve/QueryAccess.h"
#include "tessalyd/store/ArchiveIndex.h"

namespace tessaly::tessalyd {

/// Everything that this server does for an association. What is given outlives the factory and what it makes.
[[nodiscard]] ServiceFactory allServices(ArchiveIndex& index, QueryAccess& queries, decoder::Pool& decoders);

}  // namespace tessaly::tessalyd
