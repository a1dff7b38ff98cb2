#pragma once

#include "tessalyd/forwarding/images/ImageRefusal.h"

namespace tessaly::tessalyd::volumes {

/// Why a series cannot become a volume, now or later: one of its images is of no use, or all of them are
/// together.
using VolumeRefusal = images::ImageRefusal;

}  // namespace tessaly::tessalyd::volumes
