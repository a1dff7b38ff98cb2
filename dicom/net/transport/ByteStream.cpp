#include "dicom/net/transport/ByteStream.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <tuple>

namespace tessaly::dicom {

namespace {

void setFlag(int socket, int level, int option) {
    constexpr int On = 1;
    ::setsockopt(socket, level, option, &On, sizeof On);  // a kernel without it is only slower
}

/// Of a system call on a socket, which has set errno.
template <class Call>
ByteStream::Outcome outcomeOf(ByteStream::Kind wanted, const Call& call) {
    ssize_t count = 0;
    do
        count = call();
    while (count < 0 && errno == EINTR);
    if (count >= 0)
        return {.kind = ByteStream::Kind::Bytes, .bytes = static_cast<std::size_t>(count)};
    return {.kind = errno == EAGAIN ? wanted : ByteStream::Kind::Failed};
}

}  // namespace

SocketStream::SocketStream(int socket) : socket_(socket) {
    setFlag(socket, IPPROTO_TCP, TCP_NODELAY);
    setFlag(socket, SOL_SOCKET, SO_KEEPALIVE);  // a peer that lost its power never says so
}

ByteStream::Outcome SocketStream::read(std::span<char> target) {
    Outcome outcome = outcomeOf(Kind::WantsToRead, [this, target] {
        return ::recv(socket_, target.data(), target.size(), MSG_DONTWAIT);
    });
    if (outcome.kind != Kind::WantsToRead)
        setFlag(socket_, IPPROTO_TCP, TCP_QUICKACK);  // holds for the next segments only
    if (outcome.kind == Kind::Bytes && outcome.bytes == 0)
        outcome.kind = Kind::Ended;
    return outcome;
}

ByteStream::Outcome SocketStream::write(const Parts& parts) {
    std::array<iovec, std::tuple_size_v<Parts>> vectors{};
    for (std::size_t i = 0; i < parts.size(); ++i)
        vectors[i] = {.iov_base = const_cast<char*>(parts[i].data()), .iov_len = parts[i].size()};
    msghdr message{};
    message.msg_iov = vectors.data();
    message.msg_iovlen = vectors.size();
    return outcomeOf(Kind::WantsToWrite,
                     [this, &message] { return ::sendmsg(socket_, &message, MSG_NOSIGNAL | MSG_DONTWAIT); });
}

std::size_t SocketStream::queued() const {
    int bytes = 0;
    return ::ioctl(socket_, SIOCOUTQ, &bytes) < 0 ? 0 : static_cast<std::size_t>(bytes);
}

}  // namespace tessaly::dicom
