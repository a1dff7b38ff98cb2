#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <QByteArray>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessaly::test {

/// A table of a LUT sequence.
struct PictureTable {
    int first = 0;
    int bits = 12;
    std::vector<std::uint16_t> values;
};

/// An image whose every pixel is known, and how it comes to a film by the formulas of PS3.3: written down
/// once more, one pixel at a time, and by nothing that the server has.
struct Picture {
    std::string study = "1.2.826.0.1.1";
    std::string series = "1.2.826.0.1.1.1";
    int seriesNumber = 1;
    int number = 1;
    int rows = 11;
    int columns = 14;
    int frames = 1;
    int allocated = 16;
    int stored = 12;
    bool isSigned = false;
    std::string photometric = "MONOCHROME2";
    int planar = 0;
    std::optional<double> slope = {};
    std::optional<double> intercept = {};
    std::optional<PictureTable> modality = {};
    std::optional<double> centre = {};
    std::optional<double> width = {};
    std::string function = {};
    std::optional<PictureTable> voi = {};
    std::optional<int> padding = {};
    std::array<PictureTable, 3> palette = {};
    std::string sopClass = "1.2.840.10008.5.1.4.1.1.2";

    [[nodiscard]] std::string uid() const { return series + '.' + std::to_string(number); }
    [[nodiscard]] bool isColour() const { return photometric[0] != 'M'; }
    [[nodiscard]] int samples() const { return isColour() && photometric != "PALETTE COLOR" ? 3 : 1; }

    /// As it is stored.
    [[nodiscard]] int value(int frame, int row, int column, int sample = 0) const;
    [[nodiscard]] std::unique_ptr<DcmFileFormat> object() const;

    /// Pixels on a film: numbers of 12 bits in two bytes, or red, green and blue, a plane each.
    [[nodiscard]] QByteArray onFilm(int frame) const;
    /// The same on a colour film, whatever it is.
    [[nodiscard]] QByteArray onColourFilm(int frame) const;
    /// Likewise, on a film of 8 bits gray.
    [[nodiscard]] QByteArray onFilmOfEight(int frame) const;
    /// Black to white, from 0 to 4095.
    [[nodiscard]] int gray(int frame, int row, int column) const;

  private:
    [[nodiscard]] double meant(int stored) const;
    [[nodiscard]] double seen(double meant, int frame) const;
    [[nodiscard]] std::array<int, 3> colour(int frame, int row, int column) const;
    void putPixels(DcmDataset& set) const;
};

}  // namespace tessaly::test
