#pragma once

#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "decoder/Pool.h"
#include "tessalyd/forwarding/ftp/Source.h"
#include "tessalyd/search/InstanceLookup.h"

namespace tessaly::tessalyd::ftp {

/// A file that is made of a series' objects.
struct VolumeFile {
    std::shared_ptr<const void> folder;  ///< that the file lies in, as long as one of them is there
    std::string name;                    ///< under which it is put into the series' folder
    std::unique_ptr<Source> source;
};

/// Whether nodes of this type get volumes instead of the objects' files.
[[nodiscard]] bool isVolumeType(const std::string& nodeType);

/// The files that a node of the type gets for a series: all of them, or Fault. One of Kind::Permanent says
/// why the series cannot be a volume. Blocks; throws Stopped once the stop was requested.
[[nodiscard]] std::vector<VolumeFile> volumesOf(const std::string& nodeType,
                                                std::span<const LocatedInstance> series,
                                                decoder::Pool& decoders, const std::stop_token& stop);

}  // namespace tessaly::tessalyd::ftp
