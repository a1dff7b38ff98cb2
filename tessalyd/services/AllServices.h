#pragma once

#include "tessalyd/archive/ArchiveIndex.h"
#include "tessalyd/association/Service.h"

namespace tessaly::tessalyd {

/// Everything that this server does for an association. The index outlives the factory and what it makes.
[[nodiscard]] ServiceFactory allServices(ArchiveIndex& index);

}  // namespace tessaly::tessalyd
