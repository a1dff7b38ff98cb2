#pragma once

#include <array>
#include <csignal>

namespace tessaly::tool {

/// While it lives, Ctrl-C and the like do not end the process but have check() throw, so that everything is
/// taken back in order; a second time they end it at once. One at a time.
class BreakOff {
  public:
    BreakOff();
    ~BreakOff();
    BreakOff(const BreakOff&) = delete;
    BreakOff& operator=(const BreakOff&) = delete;

    /// Throws std::runtime_error after the first signal.
    static void check();
    /// For who has something else to say.
    [[nodiscard]] static bool isWanted() noexcept;
    /// From here on the signals are passed over: what is being put in place now is not to be torn.
    void noMore() const;

  private:
    static constexpr std::array Signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

    /// But for those that are passed over already.
    void setAll(void (*handler)(int), int flags) const;

    std::array<struct sigaction, Signals.size()> before_{};
};

}  // namespace tessaly::tool
