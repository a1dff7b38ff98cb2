#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "dicom/data/FileWindow.h"
#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::decoder {

/// What a native element can be long: its length has 32 bits, is even, and one value means 'undefined'.
constexpr std::uint64_t LongestValue = 0xfffffffe;

/// What an image says of its pixels; 0 where it says nothing.
struct ImageDescription {
    std::uint16_t rows = 0;
    std::uint16_t columns = 0;
    std::uint16_t samplesPerPixel = 0;
    std::uint16_t bitsAllocated = 0;
    std::uint16_t bitsStored = 0;
    std::uint16_t highBit = 0;
    std::uint16_t pixelRepresentation = 0;
    std::uint16_t planarConfiguration = 0;
    std::string photometric;
    std::uint64_t frames = 1;  ///< 1 where it is not said, 0 where it is said and is no number above 0

    /// Bits of one decoded frame, of which several may have a byte in common.
    [[nodiscard]] std::uint64_t frameBits() const noexcept {
        return std::uint64_t{rows} * columns * samplesPerPixel * bitsAllocated;  // 16 bits each: none is lost
    }
    /// Bytes of one decoded frame; nullopt if the description is incomplete or a frame is longer than
    /// LongestValue.
    [[nodiscard]] std::optional<std::uint64_t> frameSize() const noexcept;
    /// Bytes of all decoded frames, without padding; nullopt as above.
    [[nodiscard]] std::optional<std::uint64_t> size() const noexcept;
};

/// By what an object, its study and its series are known.
struct Identity {
    std::string sopClassUid;
    std::string sopInstanceUid;
    std::string studyInstanceUid;
    std::string seriesInstanceUid;
    bool operator==(const Identity&) const = default;
};

/// Where in a data set its pixel data lies, and what the data set says of it.
struct ObjectLayout {
    struct PixelData {
        std::size_t at = 0;       ///< where its header begins
        std::size_t valueAt = 0;  ///< its first byte, or that of its first item
        std::size_t end = 0;      ///< the byte behind it, and behind its delimiter
        bool isEncapsulated = false;
        std::array<char, 2> vr{};  ///< zeros where the syntax names none
    };
    /// A value of the data set.
    struct Value {
        std::size_t at = 0;
        std::size_t size = 0;
    };
    ImageDescription image;
    Identity identity;
    Value extendedOffsets;  ///< the extended offset table; empty where there is none
    std::optional<PixelData> pixels;
    std::size_t elements = 0;         ///< elements and items, on all levels
    std::size_t end = 0;              ///< the byte behind the last element
    bool hasNestedFragments = false;  ///< a sequence has compressed pixel data in it

    [[nodiscard]] std::size_t pixelBytes() const noexcept { return pixels ? pixels->end - pixels->at : 0; }
};

/// Steps through a data set of `size` bytes, in time proportional to its bytes and with a bounded amount of
/// memory; no tree is built. Returns nullopt if the data set is cut off, nested too deeply, or has its pixel
/// data twice. What the window's reader throws comes through.
[[nodiscard]] std::optional<ObjectLayout> readLayout(dicom::FileWindow& bytes, std::size_t size,
                                                     dicom::TransferSyntax syntax);

}  // namespace tessaly::decoder
