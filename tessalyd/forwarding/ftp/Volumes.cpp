#include "tessalyd/forwarding/ftp/Volumes.h"

#include "base/Text.h"
#include "tessalyd/forwarding/ftp/Fault.h"

namespace tessaly::tessalyd::ftp {

bool isVolumeType(const std::string& nodeType) {
    return base::sameName(nodeType, "Analyze") || base::sameName(nodeType, "Lorvo");
}

std::vector<VolumeFile> volumesOf(const std::string& nodeType, std::span<const LocatedInstance> /*series*/,
                                  decoder::Pool& /*decoders*/, const std::stop_token& /*stop*/) {
    throw Fault{Fault::Kind::Permanent, Fault::Scope::File,
                "this server does not make volumes of the type " + nodeType};
}

}  // namespace tessaly::tessalyd::ftp
