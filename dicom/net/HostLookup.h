#pragma once

#include <chrono>
#include <stop_token>
#include <string>
#include <vector>

#include "dicom/net/transport/SocketAddress.h"

namespace tessaly::dicom {

/// How a look-up ended: addresses, a description of the failure, or neither when time was up or it was
/// stopped.
struct HostAddresses {
    std::vector<SocketAddress> addresses;  ///< in the order in which they are to be tried; without a port
    std::string failure;
};

/// Resolves a name or a numeric address, IPv4 or IPv6. Comes back by `deadline` also where the resolver of
/// the system hangs: that one is left behind on a thread that touches nothing but its own answer.
[[nodiscard]] HostAddresses lookUpHost(const std::string& host,
                                       std::chrono::steady_clock::time_point deadline,
                                       const std::stop_token& stop);

}  // namespace tessaly::dicom
