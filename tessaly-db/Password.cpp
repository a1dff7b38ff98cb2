#include "tessaly-db/Password.h"

#include <sodium.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <stdexcept>

#include "base/SignalGuard.h"
#include "tessaly-db/Text.h"

namespace tessaly::tool {

namespace {

std::string randomPassword() {
    if (sodium_init() < 0)
        throw std::runtime_error("No random password can be made: libsodium does not start");
    // Without the characters that are easily taken for one another.
    constexpr std::string_view Alphabet = "abcdefghijkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    std::string password(16, '\0');
    for (char& c : password)
        c = Alphabet[randombytes_uniform(Alphabet.size())];
    return password;
}

volatile std::sig_atomic_t brokenOff = 0;

/// While it lives, what is typed does not show, and the signals that would end the process only break the
/// reading off, so that the terminal never stays silent afterwards.
class SilentTerminal {
  public:
    SilentTerminal() {
        tcgetattr(STDIN_FILENO, &mode_);
        termios silent = mode_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() { tcsetattr(STDIN_FILENO, TCSAFLUSH, &mode_); }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

  private:
    // Without SA_RESTART: read() returns. The terminal is as it was before they are.
    base::SignalGuard ends_{{SIGINT, SIGTERM, SIGHUP, SIGQUIT}, [](int) { brokenOff = 1; }};
    base::SignalGuard stop_{{SIGTSTP}, SIG_IGN};
    termios mode_{};
};

std::string ask(const std::string& question) {
    const SilentTerminal silent;
    std::cerr << question << ": " << std::flush;
    std::string line;
    for (char c = 0; c != '\n';) {
        const auto count = brokenOff != 0 ? 0 : read(STDIN_FILENO, &c, 1);
        if (count < 0 && errno == EINTR && brokenOff == 0)
            continue;
        if (count <= 0) {
            std::cerr << '\n';
            throw std::runtime_error("Broken off: no password was given");
        }
        line.push_back(c);
    }
    std::cerr << '\n';
    line.pop_back();
    return line;
}

}  // namespace

Password newPassword(const std::string& user, bool random) {
    if (random || isatty(STDIN_FILENO) == 0)
        return {.text = randomPassword(), .random = true};
    const auto password = ask("New password of " + user);
    requireTypeable(password, "The password");
    if (ask("Once more") != password)
        throw std::runtime_error("The two passwords differ");
    return {.text = password};
}

}  // namespace tessaly::tool
