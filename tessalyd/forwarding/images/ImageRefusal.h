#pragma once

#include <stdexcept>

namespace tessaly::tessalyd::images {

/// Why an image of the archive cannot be used, now or later. what() is one printable line with nothing of a
/// patient and no UID.
class ImageRefusal : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace tessaly::tessalyd::images
