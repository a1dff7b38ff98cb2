#include "dicom/net/transport/BoundedConnection.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tessaly::dicom {

namespace {

/// A reader that has been slower than this has what was written before.
constexpr std::chrono::milliseconds LongestGathering{10};

void setFlag(int socket, int level, int option) {
    constexpr int On = 1;
    ::setsockopt(socket, level, option, &On, sizeof On);  // a kernel without it is only slower
}

}  // namespace

BoundedConnection::BoundedConnection(int socket, std::shared_ptr<const IoLimits> bounds)
    : DcmTCPConnection(socket),
      bounds_(std::move(bounds)),
      reading_(bounds_->pace()),
      sending_(bounds_->pace()) {
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
    if (seconds == 0)
        return glance();
    // A failure to send is what the read then comes to.
    return begin_ != end_ || !flush() || waitToRead(std::chrono::seconds{seconds});
}

void BoundedConnection::close() {
    static_cast<void>(flush());
    DcmTCPConnection::close();
}

void BoundedConnection::closeTransportConnection() {
    static_cast<void>(flush());
    DcmTCPConnection::closeTransportConnection();
}

/// What is there goes behind what has not been read yet.
BoundedConnection::Came BoundedConnection::receive() {
    ssize_t count = 0;
    do
        count = ::recv(getSocket(), ahead_.data() + end_, ahead_.size() - end_, MSG_DONTWAIT);
    while (count < 0 && errno == EINTR);
    if (count < 0 && errno == EAGAIN)
        return Came::Nothing;
    setFlag(getSocket(), IPPROTO_TCP, TCP_QUICKACK);  // holds for the next segments only
    received(count);
    const bool good = count > 0 && arrived({ahead_.data() + end_, static_cast<std::size_t>(count)});
    if (!good) {
        ended_ = true;
        result_ = count > 0 ? -1 : count;
        return Came::End;
    }
    reading_.addBytes(static_cast<std::size_t>(count));
    end_ += static_cast<std::size_t>(count);
    return Came::Bytes;
}

/// False at the end of the data and on an error.
bool BoundedConnection::fill() {
    begin_ = end_ = 0;
    while (!ended_ && !bounds_->isStopped() && !bounds_->isExpired()) {
        const Came came = receive();
        if (came != Came::Nothing)
            return came == Came::Bytes;
        if (!waitToRead(IoLimits::NoLimit))
            break;
    }
    if (!ended_) {
        result_ = -1;
        received(result_);
    }
    return false;
}

bool BoundedConnection::glance() {
    if (IoLimits::Clock::now() - lastSent_ >= LongestGathering && !flush({}, Blocking::No))
        return true;
    if (begin_ > 0) {
        std::memmove(ahead_.data(), ahead_.data() + begin_, end_ - begin_);
        end_ -= std::exchange(begin_, 0);
    }
    if (!ended_ && end_ < ahead_.size())
        receive();
    return !bounds_->isStopped() && (ended_ || bounds_->isExpired() || end_ > incomplete());
}

bool BoundedConnection::waitToRead(std::chrono::milliseconds atMost) {
    const auto begun = IoLimits::Clock::now();
    const bool ready = bounds_->wait(getSocket(), POLLIN, std::min(atMost, reading_.left()));
    reading_.addWait(IoLimits::Clock::now() - begun);
    return ready;
}

/// False once something could not be sent. What does not go out without blocking stays.
bool BoundedConnection::flush(std::span<const char> more, Blocking blocking) {
    std::array<iovec, 2> parts{{{.iov_base = waiting_.data(), .iov_len = waiting_.size()},
                                {.iov_base = const_cast<char*>(more.data()), .iov_len = more.size()}}};
    const std::size_t all = waiting_.size() + more.size();
    std::size_t left = all;
    while (left > 0 && !broken_) {
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        const ssize_t count = ::sendmsg(getSocket(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0) {
            if (errno == EAGAIN && blocking == Blocking::No)
                break;
            broken_ = errno == EAGAIN ? !waitToSend() : errno != EINTR;
            continue;
        }
        auto gone = static_cast<std::size_t>(count);
        if (sending_.isUsed())
            countTaken(gone);
        left -= gone;
        for (iovec& part : parts) {
            const std::size_t ofThis = std::min(gone, part.iov_len);
            part.iov_base = static_cast<char*>(part.iov_base) + ofThis;
            part.iov_len -= ofThis;
            gone -= ofThis;
        }
    }
    if (all > left)
        sent(all - left);
    const std::size_t stays = broken_ ? 0 : parts[0].iov_len;
    waiting_.erase(waiting_.begin(), waiting_.end() - static_cast<std::ptrdiff_t>(stays));
    lastSent_ = IoLimits::Clock::now();
    if (broken_)
        result_ = -1;
    return !broken_;
}

/// The system says that there is room again when a third of its buffer is free, minutes later where the peer
/// is slow: what has gone meanwhile is counted every second.
bool BoundedConnection::waitToSend() {
    constexpr std::chrono::milliseconds Step{1000};
    if (!sending_.isUsed())
        queued_ = queued();
    while (sending_.left() > std::chrono::milliseconds::zero() && !bounds_->isExpired()) {
        const auto begun = IoLimits::Clock::now();
        const bool ready = bounds_->wait(getSocket(), POLLOUT, std::min(Step, sending_.left()));
        sending_.addWait(IoLimits::Clock::now() - begun);
        countTaken(0);
        if (ready || bounds_->isStopped())
            return ready;
    }
    return false;
}

/// `written` are in the system's buffer since it was last counted.
void BoundedConnection::countTaken(std::size_t written) {
    const std::size_t before = queued_ + written;
    queued_ = queued();
    sending_.addBytes(before - std::min(before, queued_));
}

std::size_t BoundedConnection::queued() {
    int bytes = 0;
    return ::ioctl(getSocket(), SIOCOUTQ, &bytes) < 0 ? 0 : static_cast<std::size_t>(bytes);
}

}  // namespace tessaly::dicom
