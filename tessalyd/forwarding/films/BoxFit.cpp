#include "tessalyd/forwarding/films/BoxFit.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <utility>

namespace tessaly::tessalyd::films {

PixelSize sizeInBox(const ImageLayout& image, unsigned position, const DisplayFormat& format,
                    const Settings& filmSettings, const PrinterRow& printer) {
    const PixelSize own{.columns = image.columns, .rows = image.rows};
    if (printer.gridWidth == 0 || printer.gridHeight == 0)
        return own;
    DisplayFormat::Size sheet{.width = printer.gridWidth, .height = printer.gridHeight};
    const auto orientation = filmSettings.find(DCM_FilmOrientation);
    if (orientation != filmSettings.end() && orientation->second == "LANDSCAPE")
        std::swap(sheet.width, sheet.height);
    const auto box = format.boxOf(position - 1, sheet);
    return fitted(own, {.columns = box.width, .rows = box.height});
}

}  // namespace tessaly::tessalyd::films
