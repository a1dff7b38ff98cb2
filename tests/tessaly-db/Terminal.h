#pragma once

#include <sys/types.h>

#include <QByteArray>
#include <QStringList>

/// A program on a terminal of its own, typed to as a person would.
class Terminal {
  public:
    Terminal(const char* program, const QStringList& arguments);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Reads on until `text` has come; false when the program ends first.
    [[nodiscard]] bool waitFor(const QByteArray& text);
    void type(const QByteArray& keys) const;
    /// As the system sends it, which need not be by a key.
    void send(int signal) const;
    /// Reads to the end. The exit status, or -1 where a signal ended the program.
    [[nodiscard]] int finish();
    /// Whether the terminal shows what is typed.
    [[nodiscard]] bool echoes() const;
    /// All that the screen has shown so far.
    [[nodiscard]] const QByteArray& screen() const { return screen_; }

  private:
    bool readMore();

    int master_ = -1;
    int keepOpen_ = -1;  // the other end, so that its mode can be looked at when the program has ended
    pid_t child_ = -1;
    QByteArray screen_;
};
