#pragma once

#include "tessalyd/forwarding/films/DisplayFormat.h"
#include "tessalyd/forwarding/films/ImagePixels.h"
#include "tessalyd/forwarding/films/PrintSettings.h"
#include "tessalyd/forwarding/films/PrinterRow.h"

namespace tessaly::tessalyd::films {

/// The size in which a printer gets an image: its own, or a smaller one that fits into the image box at the
/// position, where the printer's row says how many pixels a film has. `filmSettings` are those that hold.
[[nodiscard]] PixelSize sizeInBox(const ImageLayout& image, unsigned position, const DisplayFormat& format,
                                  const Settings& filmSettings, const PrinterRow& printer);

}  // namespace tessaly::tessalyd::films
