#include "tessalyd/forwarding/ftp/OpenSockets.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace tessaly::tessalyd::ftp {

int OpenSockets::open(int family, int type, int protocol) {
    const std::lock_guard lock{mutex_};
    if (isShutDown_) {
        errno = ECANCELED;
        return -1;
    }
    const int socket = ::socket(family, type | SOCK_CLOEXEC, protocol);
    if (socket >= 0) {
        sockets_.insert(socket);
        latest_ = socket;
    }
    return socket;
}

void OpenSockets::close(int socket) {
    const std::lock_guard lock{mutex_};
    sockets_.erase(socket);
    if (socket == latest_)
        latest_ = -1;
    ::close(socket);
}

int OpenSockets::latest() {
    const std::lock_guard lock{mutex_};
    return latest_;
}

void OpenSockets::shutDown() {
    const std::lock_guard lock{mutex_};
    isShutDown_ = true;
    for (const int socket : sockets_)
        ::shutdown(socket, SHUT_RDWR);
}

void OpenSockets::endReading() {
    const std::lock_guard lock{mutex_};
    for (const int socket : sockets_)
        ::shutdown(socket, SHUT_RD);
}

}  // namespace tessaly::tessalyd::ftp
