#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <deque>
#include <filesystem>
#include <functional>

namespace tessaly::tessalyd {

/// This server as a service that starts with the machine: a unit of the user's systemd, which the login
/// manager runs without a session of the user. Both are asked over the buses, and every call is bounded.
class SystemService : public QObject {
    Q_OBJECT

  public:
    using Done = std::function<void()>;

    /// `bus` is the session bus. The file says, across restarts of the machine, that it was this server that
    /// had the user's programs run without a session.
    SystemService(QDBusConnection bus, std::filesystem::path lingerMark);

    /// Registers the service, or no more. Both return at once and call `done` when all answers have come, in
    /// the order of the calls. What came of it is what isEnabled() says, and the log where it failed: then
    /// the service is not registered in part.
    void enable(Done done);
    void disable(Done done);
    /// The unit is enabled, and the user's programs run without a session. Blocks for less than a second.
    [[nodiscard]] bool isEnabled() const;

  private:
    using Then = std::function<void(const QDBusMessage& reply)>;

    void enqueue(std::function<void()> operation);
    void end(const Done& done);
    void ask(const QDBusConnection& bus, const QDBusMessage& message, Then then);

    void startLinger(const Done& done);
    void lingerRefused(const QDBusMessage& reply, const Done& done);
    void takeLingerBack(const Done& done);
    void enableUnit(const Done& done);
    void disableUnit(Done then);

    QDBusConnection bus_;
    std::filesystem::path lingerMark_;
    std::deque<std::function<void()>> operations_;  ///< the first is under way
};

}  // namespace tessaly::tessalyd
