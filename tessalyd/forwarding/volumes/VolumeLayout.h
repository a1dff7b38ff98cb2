#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "decoder/JobPlan.h"
#include "tessalyd/forwarding/volumes/ImageHeader.h"
#include "tessalyd/forwarding/volumes/Vector.h"

namespace tessaly::tessalyd::volumes {

/// What both formats have for a dimension: 16 bits, with a sign.
constexpr std::size_t LongestSide = 32767;

/// How the pixels of a frame lie in it.
struct PixelFormat {
    unsigned bitsAllocated = 0;  ///< 8, 16 or 32
    unsigned bitsStored = 0;
    unsigned highBit = 0;
    bool isSigned = false;
    bool operator==(const PixelFormat&) const = default;
};

/// A frame that is a slice of a volume.
struct Slice {
    Vector position;
    double slope = 1;
    double intercept = 0;
    std::optional<std::int64_t> temporalPosition;
    std::optional<std::int64_t> acquisitionTime;  ///< microseconds
    std::int64_t instanceNumber = 0;
    std::uint32_t object = 0;  ///< its number among the objects of the series
    std::uint32_t frame = 0;
    PixelFormat format;
};

/// Slices that are to become one volume.
struct SliceGroup {
    std::size_t rows = 0;
    std::size_t columns = 0;
    std::array<Vector, 2> orientation;  ///< along a row, along a column; perpendicular, of length 1
    std::array<double, 2> spacing{};    ///< mm from row to row, from column to column
    double thickness = 1;       ///< mm from a slice to where the next would be, where there is only one
    double echoTime = -1;       ///< ms; -1 where it is not said
    double repetitionTime = 0;  ///< ms; 0 where it is not said
    std::string type;
    std::vector<Slice> slices;
};

/// Slices in their order, and where they are: a voxel's middle is at origin + column * steps[0] + row *
/// steps[1] + slice * steps[2].
struct VolumeLayout {
    std::size_t rows = 0;
    std::size_t columns = 0;
    std::size_t depth = 0;  ///< positions
    std::size_t times = 0;
    Vector origin;
    std::array<Vector, 3> steps;
    bool isSheared = false;     ///< steps[2] is not perpendicular to the others: the gantry was tilted
    double secondsApart = 0;    ///< from one time to the next; 0 where it is not known
    std::vector<Slice> slices;  ///< by time, then by position

    [[nodiscard]] std::uint64_t pixelsOfSlice() const noexcept { return std::uint64_t{rows} * columns; }
    [[nodiscard]] bool hasOneFormat() const;
    [[nodiscard]] bool hasOneScale() const;
};

/// Sorts the frames of a series into groups of equal geometry, echo time and type of image.
class SliceGroups {
  public:
    static constexpr std::size_t MostGroups = 1000;

    /// Throws VolumeRefusal where the object cannot be in a volume, or where there are too many groups.
    void add(std::uint32_t object, ImageHeader header, const decoder::Heartbeat& heartbeat);
    [[nodiscard]] std::size_t frames() const noexcept { return frames_; }
    /// In the order of their first instance numbers.
    [[nodiscard]] std::vector<SliceGroup> take();

  private:
    [[nodiscard]] SliceGroup& groupOf(const SliceGroup& wanted);

    std::vector<SliceGroup> groups_;
    std::size_t last_ = 0;
    std::size_t frames_ = 0;
};

/// Sorts the slices by position and time. Throws VolumeRefusal where they are no volume.
[[nodiscard]] VolumeLayout layoutOf(SliceGroup group, const decoder::Heartbeat& heartbeat);

}  // namespace tessaly::tessalyd::volumes
