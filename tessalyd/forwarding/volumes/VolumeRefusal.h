#pragma once

#include <stdexcept>

namespace tessaly::tessalyd::volumes {

/// Why a series cannot become a volume, now or later. what() is one printable line with nothing of a patient
/// and no UID.
class VolumeRefusal : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace tessaly::tessalyd::volumes
