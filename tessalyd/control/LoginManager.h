#pragma once

#include <QDBusConnection>
#include <QDBusMessage>

namespace tessaly::tessalyd {

/// The machine's login manager (logind), over its interface on the system bus: whether this user's programs
/// run without a session ("linger").
class LoginManager {
  public:
    /// The system bus, connected to where that is possible now. Blocks while it is connected to.
    [[nodiscard]] static QDBusConnection bus();

    [[nodiscard]] static QDBusMessage linger();
    [[nodiscard]] static QDBusMessage setLinger(bool isOn);

    /// What the reply to linger() says; false for an error. The manager knows no user who has neither a
    /// session nor linger.
    [[nodiscard]] static bool isOn(const QDBusMessage& reply);

    /// The command by which an administrator does what the manager refuses to the user.
    [[nodiscard]] static QString remedy();
};

}  // namespace tessaly::tessalyd
