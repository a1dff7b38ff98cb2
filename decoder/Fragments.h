#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tessaly::decoder {

using Bytes = std::span<const unsigned char>;

/// Compressed pixel data as it lies in an object. The bytes are somebody else's.
struct Fragments {
    Bytes offsetTable;
    Bytes extendedOffsets;  ///< of the data set, not of the pixel data: 8 bytes each
    std::vector<Bytes> parts;
};

/// Reads the items of compressed pixel data, from the first one to the delimiter; nullopt if they are no such
/// items. Its bytes are little endian.
[[nodiscard]] std::optional<Fragments> readFragments(Bytes value);

/// The fragments of one frame, in order.
using Frame = std::span<const Bytes>;

/// Tells which fragments belong to which of `frames` frames: all to the only one, one to each, as the basic
/// or the extended offset table says, or, where `streamsEnd` says that each frame ends with a marker of its
/// own, as the markers say. nullopt if there are too few or too many. `fragments` outlive the result.
[[nodiscard]] std::optional<std::vector<Frame>> splitFrames(const Fragments& fragments, std::uint64_t frames,
                                                            bool streamsEnd);

}  // namespace tessaly::decoder
