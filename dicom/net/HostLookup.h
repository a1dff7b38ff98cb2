#pragma once

#include <chrono>
#include <optional>
#include <stop_token>
#include <string>

namespace tessaly::dicom {

/// How a look-up ended: an address, a description of the failure, or neither when time was up or it was
/// stopped.
struct HostAddress {
    std::optional<std::string> dotted;  ///< IPv4, the only kind that DCMTK 3.6.7 connects to
    std::string failure;
};

/// Resolves a name or an address in dotted form. Comes back by `deadline` also where the resolver of the
/// system hangs: that one is left behind on a thread that touches nothing but its own answer.
[[nodiscard]] HostAddress lookUpHost(const std::string& host, std::chrono::steady_clock::time_point deadline,
                                     const std::stop_token& stop);

}  // namespace tessaly::dicom
