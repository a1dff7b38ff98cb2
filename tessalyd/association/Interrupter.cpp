#include "tessalyd/association/Interrupter.h"

#include <sys/socket.h>

namespace tessaly::tessalyd {

void Interrupter::interrupt() noexcept {
    interrupted_ = true;
    const std::lock_guard lock{mutex_};
    if (socket_ >= 0)
        ::shutdown(socket_, SHUT_RD);  // whoever polls or reads it comes back; writing goes on
}

void Interrupter::attach(int socket) noexcept {
    const std::lock_guard lock{mutex_};
    socket_ = socket;
    if (interrupted_)
        ::shutdown(socket_, SHUT_RD);
}

void Interrupter::detach() noexcept {
    const std::lock_guard lock{mutex_};
    socket_ = -1;
}

}  // namespace tessaly::tessalyd
