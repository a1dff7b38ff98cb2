#pragma once

#include "base/SignalGuard.h"

namespace tessaly::tool {

/// While it lives, Ctrl-C and the like do not end the process but have check() throw and the statement under
/// way end (db::Stopped), so that everything is taken back in order; a second time they end it at once. One
/// at a time.
class InterruptGuard {
  public:
    static constexpr const char* Message = "Broken off: nothing was written";

    InterruptGuard();

    /// Throws std::runtime_error with that message after the first signal.
    static void check();
    /// For a caller that reports it in other words.
    [[nodiscard]] static bool isWanted() noexcept;
    /// From here on the signals are passed over: what is being put in place now is not to be torn.
    void noMore() const;

  private:
    base::SignalGuard signals_;
};

}  // namespace tessaly::tool
