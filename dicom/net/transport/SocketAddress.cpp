#include "dicom/net/transport/SocketAddress.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace tessaly::dicom {

namespace {

std::uint64_t bigEndian(const std::uint8_t* bytes, std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i)
        value = value << 8U | bytes[i];
    return value;
}

}  // namespace

SocketAddress::SocketAddress(const sockaddr& address, socklen_t size)
    : size_(std::min<socklen_t>(size, sizeof storage_)) {
    std::memcpy(&storage_, &address, size_);
}

std::optional<SocketAddress> SocketAddress::parse(const std::string& numeric, std::uint16_t port) {
    const bool isInBrackets = numeric.size() > 2 && numeric.front() == '[' && numeric.back() == ']';
    const std::string text = isInBrackets ? numeric.substr(1, numeric.size() - 2) : numeric;
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = htons(port);
    if (!isInBrackets && inet_pton(AF_INET, text.c_str(), &ipv4.sin_addr) == 1)
        return SocketAddress{reinterpret_cast<const sockaddr&>(ipv4), sizeof ipv4};
    // By the resolver, which knows the names of interfaces too.
    const addrinfo hints{.ai_flags = AI_NUMERICHOST, .ai_family = AF_INET6, .ai_socktype = SOCK_STREAM};
    addrinfo* found = nullptr;
    if (getaddrinfo(text.c_str(), nullptr, &hints, &found) != 0)
        return std::nullopt;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner{found, &freeaddrinfo};
    SocketAddress address{*found->ai_addr, found->ai_addrlen};
    address.setPort(port);
    return address;
}

void SocketAddress::setPort(std::uint16_t port) noexcept {
    if (isIpv6())
        reinterpret_cast<sockaddr_in6&>(storage_).sin6_port = htons(port);
    else
        reinterpret_cast<sockaddr_in&>(storage_).sin_port = htons(port);
}

std::uint64_t SocketAddress::hostKey() const noexcept {
    if (!isIpv6())
        return ntohl(reinterpret_cast<const sockaddr_in&>(storage_).sin_addr.s_addr);
    constexpr std::size_t PrefixSize = 8;
    constexpr std::size_t MappedAt = 12;
    constexpr std::uint64_t NoIpv4 = std::uint64_t{1} << 63U;  // no prefix stands for an IPv4 address
    const in6_addr& address = reinterpret_cast<const sockaddr_in6&>(storage_).sin6_addr;
    if (IN6_IS_ADDR_V4MAPPED(&address))
        return bigEndian(address.s6_addr + MappedAt, sizeof address - MappedAt);
    return NoIpv4 | bigEndian(address.s6_addr, PrefixSize);
}

}  // namespace tessaly::dicom
