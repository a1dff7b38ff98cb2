#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tessalyd/forwarding/composing/Header.h"
#include "tessalyd/forwarding/images/PixelSource.h"

namespace tessaly::tessalyd::composing {

/// The pixels of one frame, piece by piece of its rows. Belongs to one thread. What it is given outlives it.
class FrameReader {
  public:
    /// Throws images::ImageRefusal where the frame is not there, or of a kind that is not known.
    FrameReader(const images::PixelSource& source, const Header& header, std::size_t frame);

    [[nodiscard]] std::uint32_t rows() const noexcept { return image_.rows; }
    [[nodiscard]] std::uint32_t columns() const noexcept { return image_.columns; }
    [[nodiscard]] bool isColour() const noexcept { return kind_ != Kind::Gray; }
    [[nodiscard]] unsigned bitsStored() const noexcept { return image_.bitsStored; }
    [[nodiscard]] bool isSigned() const noexcept { return image_.pixelRepresentation == 1; }

    /// Stored values of gray pixels.
    void readGray(std::uint32_t row, std::uint32_t column, std::span<std::int64_t> values);
    /// Red, green and blue of each pixel, 8 bits each.
    void readColour(std::uint32_t row, std::uint32_t column, std::span<std::uint8_t> values);

  private:
    enum class Kind : std::uint8_t { Gray, Rgb, Full, Full422, Palette };

    [[nodiscard]] Kind kindOf() const;
    void readPalette(const Header& header);
    void readSamples(std::uint64_t first, std::size_t count);
    [[nodiscard]] std::int64_t valueAt(std::size_t index) const;
    void convert(std::span<std::uint8_t> values) const;

    const images::PixelSource& source_;
    const decoder::ImageDescription& image_;
    Kind kind_;
    std::uint64_t firstBit_ = 0;  // of the frame, in the pixel data
    std::vector<char> bytes_;     // read last
    unsigned bitInByte_ = 0;      // where in the first of them the values begin
    std::vector<std::int64_t> colours_;
    struct Entry {
        std::uint8_t red = 0;
        std::uint8_t green = 0;
        std::uint8_t blue = 0;
    };
    std::vector<Entry> palette_;
    std::int64_t firstEntry_ = 0;
};

}  // namespace tessaly::tessalyd::composing
