#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "decoder/JobPlan.h"
#include "tessalyd/forwarding/images/ScratchFile.h"
#include "tessalyd/forwarding/volumes/StagedPixels.h"
#include "tessalyd/forwarding/volumes/Voxels.h"

namespace tessaly::tessalyd::volumes {

/// What a volume of Analyze has its axes by: to the left, to the front, to the head. Degrees are those that
/// its own axes are away from these.
struct AnatomicalAxes {
    Axes axes;
    double degrees = 0;
};
[[nodiscard]] AnatomicalAxes anatomicalAxes(const VolumeLayout& layout);

/// Writes a NIfTI-1 file of one volume, compressed. Throws std::system_error.
void writeNifti(const std::filesystem::path& path, const StagedVolume& volume,
                const images::ScratchFile& file, const decoder::Heartbeat& heartbeat);

/// Writes the two files of an Analyze 7.5 volume. Throws std::system_error.
void writeAnalyze(const std::filesystem::path& header, const std::filesystem::path& image,
                  const StagedVolume& volume, const images::ScratchFile& file,
                  const decoder::Heartbeat& heartbeat);

}  // namespace tessaly::tessalyd::volumes
