#include "tests/support/UnusedPort.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace tessaly::test {

QString unusedPort() {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof address;
    const bool bound = ::bind(socket, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                       ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    ::close(socket);
    if (!bound)
        throw std::runtime_error("no unused port");
    return QString::number(ntohs(address.sin_port));
}

}  // namespace tessaly::test
