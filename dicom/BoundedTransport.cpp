#include "dicom/BoundedTransport.h"

#include <dcmtk/dcmnet/dcmtrans.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace tessaly::dicom {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

void setTcpFlag(int socket, int option) {
    constexpr int On = 1;
    ::setsockopt(socket, IPPROTO_TCP, option, &On, sizeof On);  // a kernel without it is only slower
}

/// DCMTK writes a message in pieces and leaves Nagle's algorithm on, so that each side would wait for the
/// other's delayed acknowledgement: here nothing waits to be sent, and the peer not for an acknowledgement.
class BoundedConnection : public DcmTCPConnection {
  public:
    BoundedConnection(DcmNativeSocketType socket, const BoundedTransport& transport)
        : DcmTCPConnection(socket), transport_(transport) {
        setTcpFlag(socket, TCP_NODELAY);
    }

    ssize_t read(void* buffer, size_t size) override {
        if (!transport_.waitForData(getSocket(), milliseconds::max())) {
            errno = ETIMEDOUT;
            return -1;
        }
        const ssize_t count = DcmTCPConnection::read(buffer, size);
        setTcpFlag(getSocket(), TCP_QUICKACK);  // holds for the next segments only
        return count;
    }

    // The few messages of a verification fit any send buffer: only reading waits.
    ssize_t write(void* buffer, size_t size) override {
        return send(getSocket(), buffer, size, MSG_NOSIGNAL);
    }

    OFBool networkDataAvailable(int seconds) override {
        return transport_.waitForData(getSocket(), std::chrono::seconds{seconds});
    }

  private:
    const BoundedTransport& transport_;
};

}  // namespace

BoundedTransport::BoundedTransport(Clock::time_point deadline, std::stop_token stop)
    : deadline_(deadline), stop_(std::move(stop)), wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wakeUp_ < 0)
        throw std::system_error(errno, std::generic_category(), "No event for a verification");
}

BoundedTransport::~BoundedTransport() {
    close(wakeUp_);
}

bool BoundedTransport::waitForData(int socket, milliseconds atMost) const {
    const auto left = std::chrono::ceil<milliseconds>(deadline_ - Clock::now());
    const auto wait = std::clamp(atMost, 0ms, std::max(left, 0ms));
    const std::stop_callback wake{stop_, [this] { (void)eventfd_write(wakeUp_, 1); }};
    std::array<pollfd, 2> sources{{{.fd = socket, .events = POLLIN}, {.fd = wakeUp_, .events = POLLIN}}};
    const int ready = poll(sources.data(), sources.size(), static_cast<int>(wait.count()));
    return ready > 0 && sources[0].revents != 0 && sources[1].revents == 0;
}

DcmTransportConnection* BoundedTransport::createConnection(DcmNativeSocketType openSocket,
                                                           OFBool useSecureLayer) {
    if (useSecureLayer)
        return nullptr;
    connected_ = true;
    return new BoundedConnection(openSocket, *this);  // owned by the association
}

}  // namespace tessaly::dicom
