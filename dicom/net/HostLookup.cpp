#include "dicom/net/HostLookup.h"

#include <netdb.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace tessaly::dicom {

namespace {

/// Shared with the thread that asks the resolver, which may outlive the caller.
struct Answer {
    std::mutex mutex;
    std::condition_variable_any arrived;
    std::optional<HostAddresses> addresses;
};

HostAddresses resolve(const std::string& host) {
    const addrinfo hints{.ai_flags = AI_ADDRCONFIG, .ai_family = AF_UNSPEC, .ai_socktype = SOCK_STREAM};
    addrinfo* found = nullptr;
    if (const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0)
        return {.addresses = {}, .failure = gai_strerror(error)};
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner{found, &freeaddrinfo};
    HostAddresses result;
    for (const addrinfo* one = found; one != nullptr; one = one->ai_next) {
        if (one->ai_family == AF_INET || one->ai_family == AF_INET6)
            result.addresses.emplace_back(*one->ai_addr, one->ai_addrlen);
    }
    return result;
}

}  // namespace

HostAddresses lookUpHost(const std::string& host, std::chrono::steady_clock::time_point deadline,
                         const std::stop_token& stop) {
    if (host.empty())
        return {.addresses = {}, .failure = "There is no host"};
    if (const auto numeric = SocketAddress::parse(host))
        return {.addresses = {*numeric}, .failure = {}};

    const auto answer = std::make_shared<Answer>();
    std::thread{[answer, host] {
        HostAddresses addresses = resolve(host);
        const std::lock_guard lock{answer->mutex};
        answer->addresses = std::move(addresses);
        answer->arrived.notify_all();
    }}.detach();

    std::unique_lock lock{answer->mutex};
    if (!answer->arrived.wait_until(lock, stop, deadline, [&] { return answer->addresses.has_value(); }))
        return {};
    return *answer->addresses;
}

}  // namespace tessaly::dicom
