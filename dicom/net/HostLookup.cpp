#include "dicom/net/HostLookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <array>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace tessaly::dicom {

namespace {

/// Shared with the thread that asks the resolver, which may outlive the caller.
struct Answer {
    std::mutex mutex;
    std::condition_variable_any arrived;
    std::optional<HostAddress> address;
};

HostAddress resolve(const std::string& host, int flags) {
    const addrinfo hints{.ai_flags = flags, .ai_family = AF_INET, .ai_socktype = SOCK_STREAM};
    addrinfo* found = nullptr;
    if (const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0)
        return {.failure = gai_strerror(error)};
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner{found, &freeaddrinfo};
    std::array<char, INET_ADDRSTRLEN> dotted{};
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr, dotted.data(),
              dotted.size());
    return {.dotted = dotted.data()};
}

}  // namespace

HostAddress lookUpHost(const std::string& host, std::chrono::steady_clock::time_point deadline,
                       const std::stop_token& stop) {
    if (host.empty())
        return {.failure = "There is no host"};
    if (HostAddress numeric = resolve(host, AI_NUMERICHOST); numeric.dotted)
        return numeric;

    const auto answer = std::make_shared<Answer>();
    std::thread{[answer, host] {
        HostAddress address = resolve(host, 0);
        const std::lock_guard lock{answer->mutex};
        answer->address = std::move(address);
        answer->arrived.notify_all();
    }}.detach();

    std::unique_lock lock{answer->mutex};
    if (!answer->arrived.wait_until(lock, stop, deadline, [&] { return answer->address.has_value(); }))
        return {};
    return *answer->address;
}

}  // namespace tessaly::dicom
