#pragma once

#include <csignal>
#include <initializer_list>
#include <vector>

namespace tessaly::base {

/// Gives signals another action while it lives, and then back what they had. One that the caller of this
/// program has asked to be passed over, as `nohup` does, stays passed over where `keepsIgnored`.
class SignalGuard {
  public:
    using Handler = void (*)(int);

    SignalGuard(std::initializer_list<int> numbers, Handler handler, int flags = 0, bool keepsIgnored = false)
        : keepsIgnored_(keepsIgnored) {
        for (const int number : numbers) {
            Signal& one = signals_.emplace_back();
            one.number = number;
            sigaction(number, nullptr, &one.before);
        }
        set(handler, flags);
    }
    ~SignalGuard() {
        for (const Signal& one : signals_)
            sigaction(one.number, &one.before, nullptr);
    }
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

    /// Another action from here on.
    void set(Handler handler, int flags = 0) const {
        struct sigaction action {};
        action.sa_handler = handler;
        action.sa_flags = flags;
        for (const Signal& one : signals_) {
            if (!keepsIgnored_ || !isIgnored(one.before))
                sigaction(one.number, &action, nullptr);
        }
    }

  private:
    struct Signal {
        int number = 0;
        struct sigaction before {};
    };

    static bool isIgnored(const struct sigaction& action) {
        return (static_cast<unsigned>(action.sa_flags) & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
    }

    std::vector<Signal> signals_;
    bool keepsIgnored_;
};

}  // namespace tessaly::base
