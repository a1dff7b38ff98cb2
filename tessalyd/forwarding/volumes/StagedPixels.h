#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <vector>

#include "decoder/JobPlan.h"
#include "decoder/Pool.h"
#include "tessalyd/forwarding/images/ScratchFile.h"
#include "tessalyd/forwarding/volumes/PixelSources.h"
#include "tessalyd/forwarding/volumes/VolumeLayout.h"

namespace tessaly::tessalyd::volumes {

/// What a stored value is in the scratch file, in little endian.
struct ElementType {
    unsigned size = 2;  ///< bytes: 1, 2 or 4
    bool isSigned = false;
};

/// A volume whose stored values lie in a scratch file: slice by slice as the layout has them, each by rows.
struct StagedVolume {
    VolumeLayout layout;
    ElementType type;
    std::uint64_t at = 0;  ///< where they begin
    std::int64_t least = std::numeric_limits<std::int64_t>::max();
    std::int64_t greatest = std::numeric_limits<std::int64_t>::min();

    [[nodiscard]] std::uint64_t sliceBytes() const noexcept { return layout.pixelsOfSlice() * type.size; }
};

/// What staging reads and where it puts things.
struct Staging {
    const OpenObject& open;
    const std::filesystem::path& folder;  ///< of scratch files
    decoder::Pool& decoders;
    const decoder::Interest& interest;
    const decoder::Heartbeat& heartbeat;
};

/// Gives each volume its place and its type of element. Throws VolumeRefusal where pixels of different kinds
/// have no type in common, or all are more than `mostBytes`.
[[nodiscard]] std::vector<StagedVolume> planStaging(std::vector<VolumeLayout> layouts,
                                                    std::uint64_t mostBytes);

/// Brings the pixels of every object into `target`, each object decoded once. Throws VolumeRefusal where an
/// object cannot be decoded, decoder::Abandoned, and std::exception where it may go better another time.
void stage(const Staging& staging, std::vector<StagedVolume>& volumes, const images::ScratchFile& target);

}  // namespace tessaly::tessalyd::volumes
