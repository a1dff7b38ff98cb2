#pragma once

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
    static void noMore();
};

}  // namespace tessaly::tool
