#include "tests/support/UnusedPort.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <stdexcept>
#include <string>

namespace tessaly::test {

namespace {

template <class Address>
bool canBind(int socket, const Address& address, std::size_t size) {
    return ::bind(socket, reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(size)) == 0;
}

/// Takes a name that belongs to the port, and keeps it until the process ends.
bool reserve(int port) {
    const std::string name = "tessaly-test-port-" + std::to_string(port);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(name.begin(), name.end(), address.sun_path + 1);  // without a file: it begins with a zero
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (canBind(socket, address, offsetof(sockaddr_un, sun_path) + 1 + name.size()))
        return true;
    ::close(socket);
    return false;
}

bool isUnused(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool bound = canBind(socket, address, sizeof address);
    ::close(socket);
    return bound;
}

}  // namespace

QString unusedPort() {
    // Below what Linux takes for outgoing connections: one of those would have the port before it is used.
    constexpr int First = 10'000;
    constexpr int Last = 32'000;
    constexpr int Attempts = 1000;
    static std::mt19937 random{std::random_device{}()};
    std::uniform_int_distribution<int> ports{First, Last};
    for (int attempt = 0; attempt < Attempts; ++attempt) {
        const int port = ports(random);
        if (isUnused(port) && reserve(port))
            return QString::number(port);
    }
    throw std::runtime_error("no unused port");
}

}  // namespace tessaly::test
