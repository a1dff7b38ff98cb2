#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tessaly::tessalyd::films {

/// What the pixels of an image are, natively coded in little endian.
struct ImageLayout {
    unsigned rows = 0;
    unsigned columns = 0;
    unsigned samples = 1;          ///< 3: red, green, blue
    unsigned bitsAllocated = 8;    ///< 8 or 16
    unsigned bitsStored = 8;       ///< the lowest of them
    bool isByPlane = false;        ///< all red samples first, then all green ones, then all blue ones
    bool isInverse = false;        ///< MONOCHROME1
    std::string aspectRatio = {};  ///< Pixel Aspect Ratio as it was sent; empty without

    [[nodiscard]] std::uint64_t bytes() const noexcept {
        return std::uint64_t{rows} * columns * samples * (bitsAllocated / 8);
    }
};

/// A table of presentation values for grayscale pixels.
struct LookupTable {
    std::vector<std::uint16_t> values;  ///< of the pixels from 0 on
    unsigned bits = 12;                 ///< of a value: 8 to 16

    /// The same for pixels of another depth.
    [[nodiscard]] LookupTable forBits(unsigned pixelBits) const;
};

/// What a printer gets.
struct TargetLayout {
    unsigned rows = 0;
    unsigned columns = 0;
    bool isColour = false;  ///< 8 bits a sample, by plane
    unsigned bits = 12;     ///< of grayscale: 8 in one byte; 12 in two; 10 as 12 with two low zeros
    /// The pixels are turned into presentation values, whatever they were: MONOCHROME2 and normal polarity.
    bool isRendered = false;
    bool isReversed = false;              ///< by its polarity, where it is rendered
    const LookupTable* lookUp = nullptr;  ///< where it is rendered; may be missing

    [[nodiscard]] unsigned bytesPerSample() const noexcept { return isColour || bits == 8 ? 1 : 2; }
    [[nodiscard]] std::uint64_t bytes() const noexcept {
        return std::uint64_t{rows} * columns * (isColour ? 3 : 1) * bytesPerSample();
    }
};

struct PixelSize {
    unsigned columns = 0;
    unsigned rows = 0;
};
/// The size of an image in a box: its own if it fits, else the greatest of the same shape that does.
[[nodiscard]] PixelSize fitted(const PixelSize& image, const PixelSize& box) noexcept;

/// Reads the pixels from the beginning of a file and hands them on as the target has them, in pieces. What is
/// smaller than the source is the mean of what it covers. Colour becomes gray by ITU-R BT.601. Memory is
/// that of some rows. Throws std::system_error, and std::runtime_error when the file is too short.
void convertPixels(int file, const ImageLayout& source, const TargetLayout& target,
                   const std::function<void(std::span<const char>)>& take);

}  // namespace tessaly::tessalyd::films
