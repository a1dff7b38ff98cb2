#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace tessaly::dicom {

/// How slow a peer may be: below this rate it may stay for so long, whatever it did before.
struct Pace {
    static constexpr std::chrono::milliseconds NoLimit = std::chrono::milliseconds::max();
    static constexpr std::size_t LeastRate = 1024;  ///< bytes a second

    std::chrono::milliseconds silence = NoLimit;
    std::size_t bytesPerSecond = LeastRate;
};

/// The account of what this side has waited for a peer: waiting uses it up, bytes that move make up for it.
/// What this side does itself, a slow disk for one, is not the peer's time and does not count.
class Patience {
  public:
    using Duration = std::chrono::steady_clock::duration;

    explicit Patience(const Pace& pace) : pace_(pace) {}

    /// A new account.
    void restart(const Pace& pace) {
        pace_ = pace;
        waited_ = Duration::zero();
    }
    void addWait(Duration time) { waited_ += time; }
    void addBytes(std::size_t count) {
        if (waited_ > Duration::zero())
            waited_ -= std::min(waited_, timeFor(count));
    }
    [[nodiscard]] bool isUsed() const { return waited_ > Duration::zero(); }
    /// How long the peer is still waited for; zero: it has failed.
    [[nodiscard]] std::chrono::milliseconds left() const {
        if (pace_.silence == Pace::NoLimit)
            return Pace::NoLimit;
        return std::max(std::chrono::ceil<std::chrono::milliseconds>(pace_.silence - waited_),
                        std::chrono::milliseconds::zero());
    }

  private:
    [[nodiscard]] Duration timeFor(std::size_t bytes) const {
        // More than a day's worth is not told apart, so that nothing overflows.
        const double seconds =
            std::min(static_cast<double>(bytes) / static_cast<double>(pace_.bytesPerSecond), 86'400.0);
        return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
    }

    Pace pace_;
    Duration waited_{0};
};

}  // namespace tessaly::dicom
