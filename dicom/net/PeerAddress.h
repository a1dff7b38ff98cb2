#pragma once

#include <cstdint>
#include <string>

namespace tessaly::dicom {

/// Where an association of ours goes, and the titles that it is asked for with.
struct PeerAddress {
    std::string host;  ///< a name or a numeric address
    std::uint16_t port = 0;
    std::string callingAeTitle;
    std::string calledAeTitle;
};

}  // namespace tessaly::dicom
