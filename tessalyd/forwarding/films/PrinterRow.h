#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/Connection.h"

namespace tessaly::tessalyd::films {

/// A row of the table Printers. Texts are without blanks around them; numbers are the digits of whole ones;
/// what is NULL is empty.
struct PrinterRow {
    std::string name;
    std::string aeTitle;
    std::string host;
    std::string port;
    std::string copies;
    std::string priority;
    std::string medium;
    std::string destination;
    std::string illumination;  ///< candelas a square metre, as the reflection
    std::string reflection;
    std::string minDensity;  ///< hundredths of an optical density, as the greatest
    std::string maxDensity;
    std::string border;
    std::string polarity;
    std::string emptyDensity;
    std::string filmSize;
    std::string resolution;
    std::string orientation;
    std::string magnification;
    std::string smoothing;
    std::string trim;
    std::string userParams;
    std::string layout;
    unsigned gridWidth = 0;  ///< pixels of a film in portrait; 0: not known, as the height
    unsigned gridHeight = 0;
    bool forcesGrayscale = false;
    bool isDefault = false;
    unsigned bits = 12;  ///< of grayscale pixels: 8, 10 or 12

    /// Of its jobs: one printer prints one job at a time.
    [[nodiscard]] std::string lane() const;
};

/// All printers, by name. Throws db::Error.
[[nodiscard]] std::vector<PrinterRow> readPrinters(const db::Connection& connection);

/// The printer for an association: the one of that name, without regard to case, else the one with the AE
/// title, else the default one. Returns null if there is none.
[[nodiscard]] const PrinterRow* printerFor(const std::vector<PrinterRow>& printers,
                                           std::string_view calledAeTitle);
/// The printer of that name, without regard to case. Returns null if there is none.
[[nodiscard]] const PrinterRow* printerNamed(const std::vector<PrinterRow>& printers, std::string_view name);

}  // namespace tessaly::tessalyd::films
