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
/// background and not waited for before it has answered: a hung server costs the window one time-out and not
/// one a second.
class ServerBus {
  public:
    /// The time that any one call may take, in milliseconds.
    static constexpr int CallLimit = 2000;

    ServerBus();
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

    /// Throws std::runtime_error while an earlier question is unanswered.
    void checkAnswers() const;
    /// Throws the error of a call as std::runtime_error; asks `question` in the background when the call ran
    /// out of time.
    [[noreturn]] void fail(const QDBusError& error, const QDBusMessage& question);

    [[nodiscard]] const QDBusConnection& connection() const { return connection_; }

  private:
    QString name_;  // of the connection, within this process
    QDBusConnection connection_;
    QString renounced_;
    std::optional<QDBusPendingCall> unanswered_;
};

}  // namespace tessaly::server
