#pragma once

#include <QDBusConnection>

namespace tessaly::tessalyd {

/// This server as a unit of the user's systemd, over systemd's own interface on the session bus. Every call
/// is bounded; without a systemd there it does nothing and says no.
class SystemService {
  public:
    explicit SystemService(QDBusConnection bus) : bus_(std::move(bus)) {}

    /// Has the unit started with the user's session from now on, or no more. What came of it is what
    /// isEnabled() says.
    void enable();
    void disable();
    [[nodiscard]] bool isEnabled() const;

  private:
    [[nodiscard]] QDBusMessage call(const QString& method, const QVariantList& arguments) const;
    void reload();

    QDBusConnection bus_;
};

}  // namespace tessaly::tessalyd
