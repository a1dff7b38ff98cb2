#include "tests/tessaly-db/Terminal.h"

#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <vector>

#include "tests/support/Eventually.h"

using tessaly::test::PatienceMs;

Terminal::Terminal(const char* program, const QStringList& arguments) {
    QByteArrayList words{program};
    for (const QString& argument : arguments)
        words += argument.toUtf8();
    std::vector<char*> argv(static_cast<std::size_t>(words.size()) + 1, nullptr);
    std::transform(words.begin(), words.end(), argv.begin(), [](QByteArray& word) { return word.data(); });
    if (openpty(&master_, &keepOpen_, nullptr, nullptr, nullptr) != 0)
        qFatal("no terminal");
    child_ = fork();
    if (child_ == 0) {
        close(master_);
        if (login_tty(keepOpen_) == 0)
            execv(program, argv.data());
        _exit(127);
    }
}

Terminal::~Terminal() {
    if (child_ > 0) {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    close(keepOpen_);
    close(master_);
}

bool Terminal::readMore() {
    pollfd ready{.fd = master_, .events = POLLIN, .revents = 0};
    if (poll(&ready, 1, 50) <= 0)
        return false;
    std::array<char, 256> part{};
    const auto count = read(master_, part.data(), part.size());
    if (count > 0)
        screen_.append(part.data(), count);
    return count > 0;
}

bool Terminal::waitFor(const QByteArray& text) {
    for (int waited = 0; !screen_.contains(text) && waited < PatienceMs; waited += 50)
        readMore();
    return screen_.contains(text);
}

void Terminal::type(const QByteArray& keys) const {
    if (write(master_, keys.constData(), static_cast<std::size_t>(keys.size())) != keys.size())
        qFatal("the terminal takes no keys");
}

void Terminal::send(int signal) const {
    if (kill(child_, signal) != 0)
        qFatal("the program is gone");
}

int Terminal::finish() {
    int status = 0;
    for (int waited = 0; waited < PatienceMs; waited += 50) {
        if (waitpid(child_, &status, WNOHANG) == child_) {
            child_ = -1;
            while (readMore()) {
            }
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        readMore();
    }
    return -1;
}

bool Terminal::echoes() const {
    termios mode{};
    return tcgetattr(keepOpen_, &mode) == 0 && (mode.c_lflag & ECHO) != 0;
}
