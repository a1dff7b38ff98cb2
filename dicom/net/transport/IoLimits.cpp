#include "dicom/net/transport/IoLimits.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <system_error>

namespace tessaly::dicom {

using std::chrono::milliseconds;

IoLimits::Event::Event() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd_ < 0)
        throw std::system_error{errno, std::generic_category(), "No event for a connection"};
}

IoLimits::Event::~Event() {
    ::close(fd_);
}

void IoLimits::Event::raise() const noexcept {
    (void)eventfd_write(fd_, 1);
}

IoLimits::IoLimits(std::stop_token stop, Clock::time_point deadline, const Pace& pace)
    : deadline_(deadline), pace_(pace), stop_(std::move(stop)), raise_(stop_, Raise{stopped_}) {}

bool IoLimits::wait(int socket, short event, milliseconds atMost) const {
    const auto begun = Clock::now();
    std::array<pollfd, 2> sources{{{.fd = socket, .events = event, .revents = 0},
                                   {.fd = stopped_.get(), .events = POLLIN, .revents = 0}}};
    for (;;) {
        const auto now = Clock::now();
        const auto left = std::min(std::chrono::ceil<milliseconds>(deadline_ - now),
                                   atMost - std::chrono::floor<milliseconds>(now - begun));
        constexpr milliseconds::rep Longest = std::numeric_limits<int>::max();
        const int ready = ::poll(sources.data(), sources.size(),
                                 static_cast<int>(std::clamp(left.count(), milliseconds::rep{0}, Longest)));
        if (ready > 0)
            return sources[1].revents == 0;
        if (ready == 0 ? left.count() <= Longest : errno != EINTR)
            return false;
    }
}

}  // namespace tessaly::dicom
