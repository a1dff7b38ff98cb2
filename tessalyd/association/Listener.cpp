#include "tessalyd/association/Listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <system_error>

#include "tessalyd/Log.h"

namespace tessaly::tessalyd {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error{errno, std::generic_category(), what};
}

base::FileDescriptor bound(const PortConfiguration& port, const std::string& host) {
    const auto number = port.number();
    if (!number)
        throw std::system_error{EINVAL, std::generic_category(), "not a TCP port"};
    base::FileDescriptor socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!socket.isOpen())
        fail("socket");
    constexpr int On = 1;  // connections of an earlier run that wait for their end do not hold the port
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &On, sizeof On) < 0)
        fail("SO_REUSEADDR");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(*number);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (!host.empty() && ::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1)
        throw std::system_error{EINVAL, std::generic_category(), "not an IPv4 address"};
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0)
        fail("bind");
    if (::listen(socket.get(), SOMAXCONN) < 0)
        fail("listen");
    return socket;
}

/// Out of descriptors or memory: an accept at once would fail the same way.
void pauseUnlessStopped(const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any condition;
    std::unique_lock lock{mutex};
    condition.wait_for(lock, stop, std::chrono::milliseconds{100}, [] { return false; });
}

}  // namespace

std::uint32_t peerAddress(const base::FileDescriptor& socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getpeername(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) < 0 ||
        address.sin_family != AF_INET)
        return 0;
    return ntohl(address.sin_addr.s_addr);
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
