#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusVirtualObject>
#include <QStringList>
#include <memory>

#include "tests/support/ScratchBus.h"

namespace tessaly::test {

/// In the place of another program on a bus; keeps what it was asked, a line a call.
class Manager : public QDBusVirtualObject {
  public:
    Manager(QDBusConnection bus, QString service, QString path);
    ~Manager() override;
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    QStringList calls;
    bool answers = true;

    [[nodiscard]] QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) final;
    /// Answers the calls that came while it did not.
    void answerNow();

  private:
    [[nodiscard]] virtual QDBusMessage reply(const QDBusMessage& call) = 0;

    QDBusConnection bus_;
    QString service_;
    QString path_;
    QList<QDBusMessage> unanswered_;
};

/// In the place of the user's systemd; keeps the state of one unit.
class UnitManager : public Manager {
  public:
    UnitManager();

    QString state = QStringLiteral("disabled");
    QString refused;  ///< a method

  private:
    [[nodiscard]] QDBusMessage reply(const QDBusMessage& call) override;
};

/// In the place of the machine's login manager, on a system bus of the test's own. The servers that are
/// launched while it lives use that bus.
class LoginStandIn {
  public:
    LoginStandIn();
    ~LoginStandIn();
    LoginStandIn(const LoginStandIn&) = delete;
    LoginStandIn& operator=(const LoginStandIn&) = delete;

    class Object : public Manager {
      public:
        using Manager::Manager;

        bool linger = false;
        bool refuses = false;

      private:
        [[nodiscard]] QDBusMessage reply(const QDBusMessage& call) override;
    };
    [[nodiscard]] Object& object() { return *object_; }

  private:
    std::unique_ptr<ScratchBus> bus_;
    std::unique_ptr<Object> object_;
};

/// Whether the server says that it is a service. Not blocking: the managers that it asks are in this thread.
[[nodiscard]] QDBusPendingCall askWhetherItIsAService();

}  // namespace tessaly::test
