#include "dicom/net/transport/BoundedConnection.h"

#include <dcmtk/dcmnet/cond.h>
#include <poll.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace tessaly::dicom {

namespace {

/// A reader that has been slower than this has what was written before.
constexpr std::chrono::milliseconds LongestGathering{10};

using Kind = ByteStream::Kind;

/// What poll() is to wait for.
short eventOf(Kind wanted) {
    return wanted == Kind::WantsToWrite ? POLLOUT : POLLIN;
}

bool isToWait(Kind kind) {
    return kind == Kind::WantsToRead || kind == Kind::WantsToWrite;
}

}  // namespace

BoundedConnection::BoundedConnection(int socket, std::shared_ptr<const IoLimits> limits,
                                     std::unique_ptr<ByteStream> stream)
    : DcmTCPConnection(socket),
      limits_(std::move(limits)),
      stream_(stream ? std::move(stream) : std::make_unique<SocketStream>(socket)),
      reading_(limits_->pace()),
      sending_(limits_->pace()) {}

OFCondition BoundedConnection::handshake() {
    for (;;) {
        const Kind kind = stream_->handshake().kind;
        if (kind == Kind::Bytes) {
            wanted_ = Kind::WantsToRead;
            return EC_Normal;
        }
        // All waits together count, so that a peer that sends a byte now and then has no more time.
        wanted_ = kind;
        if (!isToWait(kind) || !waitToRead(IoLimits::NoLimit))
            return makeDcmnetCondition(DULC_TLSERROR, OF_error, "The handshake was not completed");
    }
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
    const auto [kind, count] = stream_->read(std::span{ahead_}.subspan(end_));
    if (isToWait(kind)) {
        wanted_ = kind;
        return Came::Nothing;
    }
    wanted_ = Kind::WantsToRead;
    const ssize_t result = kind == Kind::Failed ? -1 : static_cast<ssize_t>(count);
    received(result);
    if (result <= 0 || !arrived({ahead_.data() + end_, count})) {
        ended_ = true;
        result_ = result > 0 ? -1 : result;
        return Came::End;
    }
    reading_.addBytes(count);
    end_ += count;
    return Came::Bytes;
}

/// False at the end of the data and on an error.
bool BoundedConnection::fill() {
    begin_ = end_ = 0;
    while (!ended_ && !limits_->isStopped() && !limits_->isExpired()) {
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
    return !limits_->isStopped() && (ended_ || limits_->isExpired() || end_ > incomplete());
}

bool BoundedConnection::waitToRead(std::chrono::milliseconds atMost) {
    const auto begun = IoLimits::Clock::now();
    const bool ready = limits_->wait(getSocket(), eventOf(wanted_), std::min(atMost, reading_.left()));
    reading_.addWait(IoLimits::Clock::now() - begun);
    return ready;
}

/// False once something could not be sent. What does not go out without blocking stays.
bool BoundedConnection::flush(std::span<const char> more, Blocking blocking) {
    ByteStream::Parts parts{std::span<const char>{waiting_}, more};
    const std::size_t all = waiting_.size() + more.size();
    std::size_t left = all;
    while (left > 0 && !broken_) {
        auto [kind, gone] = stream_->write(parts);
        if (isToWait(kind) && blocking == Blocking::No)
            break;
        if (kind != Kind::Bytes) {
            broken_ = !isToWait(kind) || !waitToSend(eventOf(kind));
            continue;
        }
        if (sending_.isUsed())
            countTaken(gone);
        left -= gone;
        for (auto& part : parts) {
            const std::size_t ofThis = std::min(gone, part.size());
            part = part.subspan(ofThis);
            gone -= ofThis;
        }
    }
    if (all > left)
        sent(all - left);
    const std::size_t stays = broken_ ? 0 : parts[0].size();
    waiting_.erase(waiting_.begin(), waiting_.end() - static_cast<std::ptrdiff_t>(stays));
    lastSent_ = IoLimits::Clock::now();
    if (broken_)
        result_ = -1;
    return !broken_;
}

/// The system says that there is room again when a third of its buffer is free, minutes later where the peer
/// is slow: what has gone meanwhile is counted every second.
bool BoundedConnection::waitToSend(short event) {
    constexpr std::chrono::milliseconds Step{1000};
    if (!sending_.isUsed())
        queued_ = stream_->queued();
    while (sending_.left() > std::chrono::milliseconds::zero() && !limits_->isExpired()) {
        const auto begun = IoLimits::Clock::now();
        const bool ready = limits_->wait(getSocket(), event, std::min(Step, sending_.left()));
        sending_.addWait(IoLimits::Clock::now() - begun);
        countTaken(0);
        if (ready || limits_->isStopped())
            return ready;
    }
    return false;
}

/// `written` are in the system's buffer since it was last counted.
void BoundedConnection::countTaken(std::size_t written) {
    const std::size_t before = queued_ + written;
    queued_ = stream_->queued();
    sending_.addBytes(before - std::min(before, queued_));
}

}  // namespace tessaly::dicom
