#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tessaly::dicom {

/// An IPv4 or IPv6 address with a port.
class SocketAddress {
  public:
    SocketAddress(const sockaddr& address, socklen_t size);
    /// A numeric address ("192.0.2.1", "2001:db8::1", "fe80::1%eth0"), also in brackets. Returns nullopt for
    /// anything else.
    [[nodiscard]] static std::optional<SocketAddress> parse(const std::string& numeric,
                                                            std::uint16_t port = 0);

    [[nodiscard]] const sockaddr* get() const noexcept {
        return reinterpret_cast<const sockaddr*>(&storage_);
    }
    [[nodiscard]] socklen_t size() const noexcept { return size_; }
    [[nodiscard]] bool isIpv6() const noexcept { return storage_.ss_family == AF_INET6; }
    void setPort(std::uint16_t port) noexcept;

    /// What stands for its host where shares are counted: the IPv4 address, also of one that is mapped into
    /// IPv6; the first 64 bits of an IPv6 address, of which one host may have the rest to itself.
    [[nodiscard]] std::uint64_t hostKey() const noexcept;

  private:
    sockaddr_storage storage_{};
    socklen_t size_;
};

}  // namespace tessaly::dicom
