#include "tessalyd/association/Listener.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <system_error>

#include "dicom/net/transport/SocketAddress.h"
#include "tessalyd/Log.h"

namespace tessaly::tessalyd {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error{errno, std::generic_category(), what};
}

void setOption(const base::FileDescriptor& socket, int level, int option, int value, const char* name) {
    if (::setsockopt(socket.get(), level, option, &value, sizeof value) < 0)
        fail(name);
}

base::FileDescriptor listening(const dicom::SocketAddress& address, bool isForIpv4Too) {
    base::FileDescriptor socket{::socket(address.get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!socket.isOpen())
        fail("socket");
    // Connections of an earlier run that wait for their end do not hold the port.
    setOption(socket, SOL_SOCKET, SO_REUSEADDR, 1, "SO_REUSEADDR");
    if (address.isIpv6())
        setOption(socket, IPPROTO_IPV6, IPV6_V6ONLY, isForIpv4Too ? 0 : 1, "IPV6_V6ONLY");
    if (::bind(socket.get(), address.get(), address.size()) < 0)
        fail("bind");
    if (::listen(socket.get(), SOMAXCONN) < 0)
        fail("listen");
    return socket;
}

/// A machine without IPv6 has no such sockets, or no such address.
bool lacksIpv6(const std::error_code& error) {
    return error == std::errc::address_family_not_supported || error == std::errc::address_not_available;
}

base::FileDescriptor bound(const PortConfiguration& port, const std::string& host) {
    const auto number = port.number();
    if (!number)
        throw std::system_error{EINVAL, std::generic_category(), "not a TCP port"};
    const auto address = dicom::SocketAddress::parse(host.empty() ? "::" : host, *number);
    if (!address)
        throw std::system_error{EINVAL, std::generic_category(), "not an IP address"};
    try {
        return listening(*address, host.empty());
    } catch (const std::system_error& error) {
        if (!host.empty() || !lacksIpv6(error.code()))
            throw;
        return listening(*dicom::SocketAddress::parse("0.0.0.0", *number), false);
    }
}

/// Out of descriptors or memory: an accept at once would fail the same way.
void pauseUnlessStopped(const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any condition;
    std::unique_lock lock{mutex};
    condition.wait_for(lock, stop, std::chrono::milliseconds{100}, [] { return false; });
}

}  // namespace

std::uint64_t peerAddress(const base::FileDescriptor& socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::getpeername(socket.get(), generic, &size) < 0 ||
        (generic->sa_family != AF_INET && generic->sa_family != AF_INET6))
        return 0;
    return dicom::SocketAddress{*generic, size}.hostKey();
}

Listener::Listener(const PortConfiguration& port, Accepted accepted, const std::string& address)
    : name_(port.port), accepted_(std::move(accepted)), socket_(bound(port, address)) {
    thread_ = std::jthread{[this](const std::stop_token& stop) { run(stop); }};
}

Listener::~Listener() {
    thread_.request_stop();
    ::shutdown(socket_.get(), SHUT_RDWR);  // wakes the accept
    thread_.join();
}

void Listener::run(const std::stop_token& stop) {
    constexpr unsigned FailuresALine = 10;  // a second of them
    unsigned failures = 0;
    while (!stop.stop_requested()) {
        base::FileDescriptor socket{::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
        if (socket.isOpen()) {
            accepted_(std::move(socket), stop);
        } else if (!stop.stop_requested() && errno != EINTR && errno != ECONNABORTED) {
            if (failures++ % FailuresALine == 0)
                OFLOG_ERROR(serverLog(),
                            "port " << name_ << ": no connection accepted: " << std::strerror(errno));
            pauseUnlessStopped(stop);
        }
    }
}

}  // namespace tessaly::tessalyd
