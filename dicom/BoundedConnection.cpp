#include "dicom/BoundedConnection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tessaly::dicom {

namespace {

/// A reader that has been slower than this has what was written before.
constexpr std::chrono::milliseconds LongestGathering{10};

void setFlag(int socket, int level, int option) {
    constexpr int On = 1;
    ::setsockopt(socket, level, option, &On, sizeof On);  // a kernel without it is only slower
}

}  // namespace

BoundedConnection::BoundedConnection(int socket, std::shared_ptr<const Bounds> bounds)
    : DcmTCPConnection(socket), bounds_(std::move(bounds)) {
    setFlag(socket, IPPROTO_TCP, TCP_NODELAY);
    setFlag(socket, SOL_SOCKET, SO_KEEPALIVE);  // a peer that lost its power never says so
}

ssize_t BoundedConnection::read(void* target, size_t size) {
    if (begin_ == end_ && !(flush() && fill()))
        return result_;
    const std::size_t count = std::min(size, end_ - begin_);
    std::memcpy(target, ahead_.data() + begin_, count);
    begin_ += count;
    return static_cast<ssize_t>(count);
}

ssize_t BoundedConnection::write(void* source, size_t size) {
    const std::span piece{static_cast<const char*>(source), size};
    if (waiting_.size() + size >= ahead_.size())
        return flush(piece) ? static_cast<ssize_t>(size) : -1;
    waiting_.insert(waiting_.end(), piece.begin(), piece.end());
    return broken_ ? -1 : static_cast<ssize_t>(size);
}

OFBool BoundedConnection::networkDataAvailable(int seconds) {
    if (begin_ != end_)
        return OFTrue;
    const bool glance = seconds == 0 && Bounds::Clock::now() - lastSent_ < LongestGathering;
    // A failure to send is what the read then comes to.
    return (!glance && !flush()) || bounds_->wait(getSocket(), POLLIN, std::chrono::seconds{seconds});
}

void BoundedConnection::close() {
    static_cast<void>(flush());
    DcmTCPConnection::close();
}

void BoundedConnection::closeTransportConnection() {
    static_cast<void>(flush());
    DcmTCPConnection::closeTransportConnection();
}

/// False at the end of the data and on an error.
bool BoundedConnection::fill() {
    begin_ = end_ = 0;
    result_ = -1;
    for (bool again = true; again && !bounds_->isStopped() && !bounds_->isExpired();) {
        result_ = ::recv(getSocket(), ahead_.data(), ahead_.size(), MSG_DONTWAIT);
        again = result_ < 0 && (errno == EINTR || (errno == EAGAIN && bounds_->wait(getSocket(), POLLIN)));
    }
    setFlag(getSocket(), IPPROTO_TCP, TCP_QUICKACK);  // holds for the next segments only
    received(result_);
    if (result_ <= 0)
        return false;
    end_ = static_cast<std::size_t>(result_);
    if (arrived({ahead_.data(), end_}))
        return true;
    end_ = 0;
    result_ = -1;
    return false;
}

/// False once something could not be sent.
bool BoundedConnection::flush(std::span<const char> more) {
    std::array<iovec, 2> parts{{{.iov_base = waiting_.data(), .iov_len = waiting_.size()},
                                {.iov_base = const_cast<char*>(more.data()), .iov_len = more.size()}}};
    const std::size_t all = waiting_.size() + more.size();
    for (std::size_t left = all; left > 0 && !broken_;) {
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        const ssize_t count = ::sendmsg(getSocket(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            broken_ = errno == EAGAIN ? !bounds_->wait(getSocket(), POLLOUT) : errno != EINTR;
            continue;
        }
        auto gone = static_cast<std::size_t>(count);
        left -= gone;
        for (iovec& part : parts) {
            const std::size_t ofThis = std::min(gone, part.iov_len);
            part.iov_base = static_cast<char*>(part.iov_base) + ofThis;
            part.iov_len -= ofThis;
            gone -= ofThis;
        }
    }
    if (all > 0)
        sent(all);
    waiting_.clear();
    lastSent_ = Bounds::Clock::now();
    if (broken_)
        result_ = -1;
    return !broken_;
}

}  // namespace tessaly::dicom
