#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <thread>

#include "base/FileDescriptor.h"
#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

/// What stands for the host of a connection's peer (SocketAddress::hostKey); 0 where there is none.
[[nodiscard]] std::uint64_t peerAddress(const base::FileDescriptor& socket);

/// Accepts connections on one port of one address, or of all addresses, from the constructor to the
/// destructor.
class Listener {
  public:
    /// Takes an accepted socket; the token is stopped when the port is no longer listened on. Called in the
    /// listener's thread, which waits for it.
    using Accepted = std::function<void(base::FileDescriptor, const std::stop_token&)>;

    /// `address` is a numeric address of this machine, IPv4 or IPv6; empty: all of them, of both kinds.
    /// Throws std::system_error when the port cannot be bound.
    Listener(const PortConfiguration& port, Accepted accepted, const std::string& address = {});
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

  private:
    void run(const std::stop_token& stop);

    std::string name_;
    Accepted accepted_;
    base::FileDescriptor socket_;
    std::jthread thread_;
};

}  // namespace tessaly::tessalyd
