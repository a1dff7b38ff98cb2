#pragma once

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <chrono>
#include <optional>

namespace tessaly::server {

/// The way to the server over the session bus, and what is known of the process that has the server's name:
/// it outlives the single Server objects. A process that once ran out of time is asked again in the
/// background, time and again, and not waited for before it has answered: a hung server costs the window one
/// time-out and not one a second.
class ServerBus {
  public:
    /// The time that any one call may take, in milliseconds.
    static constexpr int CallLimit = 2000;
    /// The time that an answer in the background may take before the question is asked anew, in milliseconds:
    /// a server that hung may have lost the question and answer the next one.
    static constexpr int AnswerLimit = 3000;

    explicit ServerBus(int answerLimit = AnswerLimit);
    ~ServerBus();
    ServerBus(const ServerBus&) = delete;
    ServerBus& operator=(const ServerBus&) = delete;

    /// The server process, started if none runs, by its own name on the bus: who talks to that name never
    /// talks to another process. Throws std::runtime_error when there is none within the limit.
    [[nodiscard]] QString startServer();
    /// The process that has the server's name now; empty when none has.
    [[nodiscard]] QString owner() const;
    /// From now on this process is not the server any more, even while it still has the name.
    void renounce(const QString& process) { renounced_ = process; }

    /// Throws std::runtime_error while an earlier question is unanswered, and asks it anew when its time is
    /// over. Waits for nothing.
    void checkAnswers();
    /// Throws the error of a call as std::runtime_error; asks `question` in the background when the call ran
    /// out of time.
    [[noreturn]] void fail(const QDBusError& error, const QDBusMessage& question);

    [[nodiscard]] const QDBusConnection& connection() const { return connection_; }

  private:
    void ask(const QDBusMessage& question);

    QString name_;  // of the connection, within this process
    QDBusConnection connection_;
    QString renounced_;
    int answerLimit_;
    QDBusMessage question_;
    std::optional<QDBusPendingCall> unanswered_;
};

}  // namespace tessaly::server
