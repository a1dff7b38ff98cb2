#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "decoder/Interest.h"
#include "decoder/Pool.h"
#include "tessalyd/forwarding/volumes/VolumeRefusal.h"

namespace tessaly::tessalyd::volumes {

enum class VolumeFormat {
    Nifti,    ///< NIfTI-1, a file `.nii.gz` each volume
    Analyze,  ///< Analyze 7.5, two files each: `.hdr` and `.img`
};

/// The series and where its volumes go.
struct VolumeRequest {
    std::vector<std::filesystem::path> objects;  ///< files of the series, each with its meta header
    /// Opens one of them for reading, by its number; empty: by its path, without following a link there.
    /// Called by several threads at a time. What it throws comes through.
    std::function<base::FileDescriptor(std::size_t)> open;
    std::string seriesInstanceUid;  ///< what the volumes are named by
    VolumeFormat format = VolumeFormat::Nifti;
    std::filesystem::path folder;                        ///< is there; scratch files are there meanwhile
    std::uint64_t mostBytes = std::uint64_t{16} << 30U;  ///< of all voxels as they are stored
};

struct Volumes {
    std::vector<std::string> names;  ///< of files in the folder, in the order in which they are sent
    std::vector<std::string> notes;  ///< for the log, a printable line each: what the format could not keep
};

/// Makes volumes of a series and writes them into the folder, replacing what has their names. Blocks until
/// then; memory is some tens of MB and some 200 bytes for each frame. Called by one thread at a time for one
/// folder; the pool is shared. Where it throws, none of the files is left:
/// - VolumeRefusal: the series cannot become volumes, and trying again does not help.
/// - decoder::Abandoned: `interest` was stopped or given up. It is thrown within 0.2 s.
/// - std::exception: a file cannot be read or written, or a decoder cannot be started; it may go better
/// later.
[[nodiscard]] Volumes writeVolumes(const VolumeRequest& request, decoder::Pool& decoders,
                                   const decoder::Interest& interest);

}  // namespace tessaly::tessalyd::volumes
