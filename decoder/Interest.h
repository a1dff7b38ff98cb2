#pragma once

#include <cstdint>
#include <functional>
#include <stop_token>

namespace tessaly::decoder {

/// Who wants an object, and for how long.
struct Interest {
    std::stop_token stop;  ///< ends the work, and every wait for it, at once
    std::function<bool()>
        isGivenUp{};              ///< asked ten times a second; ends it too. What it throws comes through
    std::uint64_t requestor = 0;  ///< the peer's host (SocketAddress::hostKey); requestors take turns
};

/// Nobody is interested any more.
struct Abandoned {};

/// Throws Abandoned once it was stopped.
inline void require(const Interest& interest) {
    if (interest.stop.stop_requested())
        throw Abandoned{};
}

}  // namespace tessaly::decoder
