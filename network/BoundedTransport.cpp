#include "network/BoundedTransport.h"

#include <dcmtk/dcmnet/dcmtrans.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace tessaly::network {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

class BoundedConnection : public DcmTCPConnection {
  public:
    BoundedConnection(DcmNativeSocketType socket, const BoundedTransport& transport)
        : DcmTCPConnection(socket), transport_(transport) {}

    ssize_t read(void* buffer, size_t size) override {
        if (!transport_.waitForData(getSocket(), milliseconds::max())) {
            errno = ETIMEDOUT;
            return -1;
        }
        return DcmTCPConnection::read(buffer, size);
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

}  // namespace tessaly::network
