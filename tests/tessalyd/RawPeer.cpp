#include "tests/tessalyd/RawPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace tessaly::test {

namespace {

sockaddr_in loopback(std::uint8_t host, std::uint16_t port) {
    constexpr std::uint32_t Net = 127U << 24U;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(Net | host);
    return address;
}

const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

RawPeer::RawPeer(const QString& port, std::uint8_t host)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in own = loopback(host, 0);
    const sockaddr_in server = loopback(1, port.toUShort());
    if (socket_ >= 0 && (::bind(socket_, generic(own), sizeof own) < 0 ||
                         ::connect(socket_, generic(server), sizeof server) < 0)) {
        ::close(socket_);
        socket_ = -1;
    }
}

RawPeer::~RawPeer() {
    if (isOpen())
        ::close(socket_);
}

bool RawPeer::send(const QByteArray& bytes) const {
    const auto sent =
        ::send(socket_, bytes.data(), static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent >= 0 || errno == EAGAIN;
}

bool RawPeer::waitForEnd(std::chrono::milliseconds atMost, const std::stop_token& stop) const {
    constexpr std::chrono::milliseconds Interval{50};
    const auto end = std::chrono::steady_clock::now() + atMost;
    std::array<char, 4096> sink{};
    while (isOpen() && !stop.stop_requested() && std::chrono::steady_clock::now() < end) {
        pollfd source{.fd = socket_, .events = POLLIN, .revents = 0};
        if (::poll(&source, 1, static_cast<int>(Interval.count())) > 0 &&
            ::recv(socket_, sink.data(), sink.size(), MSG_DONTWAIT) <= 0)
            return true;
    }
    return !isOpen();
}

}  // namespace tessaly::test
