#pragma once

#include <chrono>

#include "dicom/net/transport/Patience.h"

namespace tessaly::tessalyd {

/// How long a peer may take for what it does.
struct AssociationLimits {
    std::chrono::seconds request{10};  ///< for a whole association request, and to close the connection
    std::chrono::seconds idle{900};    ///< between two messages; a peer that is gone is noticed earlier
    std::chrono::milliseconds command{60'000};  ///< for a whole command set, from its first byte
    /// Within a message, and for a peer that is to take what it is sent.
    dicom::Pace message{.silence = std::chrono::milliseconds{60'000}};
    std::chrono::seconds answer{60};  ///< for the answer to what a service asks, and for a data set to begin
};

}  // namespace tessaly::tessalyd
