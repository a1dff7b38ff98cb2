#include "dicom/net/transport/BoundedTransport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "dicom/net/transport/BoundedConnection.h"

namespace tessaly::dicom {

namespace {

/// Longer than anybody waits; nothing overflows by it.
constexpr std::chrono::hours Longest{24};

base::FileDescriptor newSocket(int family, int flags) {
    base::FileDescriptor made{::socket(family, SOCK_STREAM | SOCK_CLOEXEC | flags, 0)};
    if (!made.isOpen())
        throw std::system_error{errno, std::generic_category(), "No socket for a connection"};
    return made;
}

const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

/// True when the connection stands; errno tells why not.
bool connectBounded(int socket, const SocketAddress& peer, const IoLimits& ioLimits,
                    std::chrono::milliseconds atMost) {
    if (::connect(socket, peer.get(), peer.size()) == 0)
        return true;
    if (errno != EINPROGRESS)
        return false;
    if (!ioLimits.wait(socket, POLLOUT, atMost)) {
        errno = ETIMEDOUT;
        return false;
    }
    socklen_t size = sizeof errno;
    int failure = 0;
    ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &failure, &size);
    errno = failure;
    return failure == 0;
}

/// Listens on any port of the loopback; returns "address:port".
std::string listenAnywhere(int socket) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(socket, generic(address), size) < 0 || ::listen(socket, 1) < 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) < 0)
        throw std::system_error{errno, std::generic_category(), "No address on the loopback"};
    return "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
}

class Connection final : public BoundedConnection {
  public:
    Connection(int socket, std::shared_ptr<const IoLimits> ioLimits, BoundedTransport::Traffic traffic)
        : BoundedConnection(socket, std::move(ioLimits)), traffic_(std::move(traffic)) {
        reading().restart({});  // every answer has a deadline of its own
    }

  protected:
    void received(ssize_t bytes) override {
        if (traffic_.received)
            traffic_.received(getSocket(), bytes);
    }
    void sent(std::size_t bytes) override {
        if (traffic_.sent)
            traffic_.sent(getSocket(), bytes);
    }

  private:
    BoundedTransport::Traffic traffic_;
};

}  // namespace

BoundedTransport::BoundedTransport(std::shared_ptr<IoLimits> ioLimits, Traffic traffic)
    : ioLimits_(std::move(ioLimits)), traffic_(std::move(traffic)) {}

std::optional<std::string> BoundedTransport::connect(std::span<const SocketAddress> addresses,
                                                     std::chrono::milliseconds atMost) {
    socket_.reset();
    loopback_.reset();
    bool isConnected = false;
    errno = EADDRNOTAVAIL;
    const auto end =
        std::min(Clock::now() + std::min<std::chrono::milliseconds>(atMost, Longest), ioLimits_->deadline());
    for (; !addresses.empty() && !isConnected && !ioLimits_->isStopped(); addresses = addresses.subspan(1)) {
        const auto share = (end - Clock::now()) / addresses.size();
        socket_ = newSocket(addresses.front().get()->sa_family, SOCK_NONBLOCK);
        isConnected = connectBounded(socket_.get(), addresses.front(), *ioLimits_,
                                     std::chrono::ceil<std::chrono::milliseconds>(share));
    }
    if (!isConnected)
        return std::nullopt;
    // DCMTK will have no socket that is connected already, so it connects to one that answers at once, in
    // whose place the peer's is put then.
    loopback_ = newSocket(AF_INET, 0);
    return listenAnywhere(loopback_.get());
}

DcmTransportConnection* BoundedTransport::createConnection(DcmNativeSocketType openSocket,
                                                           OFBool useSecureLayer) {
    if (useSecureLayer || !socket_.isOpen() || ::dup3(socket_.get(), openSocket, O_CLOEXEC) < 0)
        return nullptr;
    socket_.reset();
    loopback_.reset();
    return new Connection{openSocket, ioLimits_, traffic_};  // owned by the association
}

}  // namespace tessaly::dicom
