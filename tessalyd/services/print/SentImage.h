#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include "tessalyd/forwarding/films/AttributeSet.h"
#include "tessalyd/forwarding/films/PrintOrder.h"

namespace tessaly::tessalyd::print {

/// Throws RequestFailure with 0106, about the attribute, unless the condition holds.
void require(bool holds, const DcmTagKey& tag, const char* comment);

/// What the item of an image sequence says of its pixels. Throws RequestFailure: 0120 where an attribute is
/// missing, 0106 where one cannot be used.
[[nodiscard]] films::ImageLayout layoutOf(const films::AttributeSet& item, bool isColour);

/// The Presentation LUT of an N-CREATE. Throws RequestFailure likewise.
[[nodiscard]] films::PresentationLut lutOf(const films::AttributeSet& sent);

}  // namespace tessaly::tessalyd::print
