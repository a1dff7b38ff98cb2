#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <span>

#include "decoder/JobPlan.h"
#include "tessalyd/forwarding/images/ScratchFile.h"
#include "tessalyd/forwarding/volumes/StagedPixels.h"

namespace tessaly::tessalyd::volumes {

/// An axis of what is written: which axis of the layout it is (0 columns, 1 rows, 2 slices), and whether it
/// is gone through backwards.
struct Axis {
    std::size_t from = 0;
    bool isReversed = false;
};
using Axes = std::array<Axis, 3>;

/// Where the voxels of the written axes are: a voxel's middle is at origin + the sum of index * step.
struct Geometry {
    std::array<std::size_t, 3> size{};
    Vector origin;
    std::array<Vector, 3> steps;
};
[[nodiscard]] Geometry geometryOf(const VolumeLayout& layout, const Axes& axes);

enum class VoxelType {
    Stored,       ///< values as they are stored, as the volume's type of element has them
    ScaledInt16,  ///< with slope and intercept; the caller knows that they fit
    ScaledFloat,  ///< the same, in 32 bits
};

/// Takes the next bytes of what is written. What it throws comes through.
using Sink = std::function<void(std::span<const char>)>;

/// Gives out all voxels, the first axis running fastest, time slowest. Holds some MB of them at a time.
void writeVoxels(const StagedVolume& volume, const images::ScratchFile& file, const Axes& axes,
                 VoxelType type, const Sink& sink, const decoder::Heartbeat& heartbeat);

}  // namespace tessaly::tessalyd::volumes
