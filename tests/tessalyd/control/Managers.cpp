#include "tests/tessalyd/control/Managers.h"

#include <unistd.h>

#include <QDBusMessage>
#include <QDBusVariant>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace tessaly::test {

namespace {

const QString LoginConnection = u"login-manager"_s;

QString joined(const QVariantList& arguments) {
    QStringList texts;
    for (const QVariant& argument : arguments)
        texts << (argument.typeId() == QMetaType::QStringList ? argument.toStringList().join(u',')
                                                              : argument.toString());
    return texts.join(u' ');
}

}  // namespace

Manager::Manager(QDBusConnection bus, QString service, QString path)
    : bus_(std::move(bus)), service_(std::move(service)), path_(std::move(path)) {
    if (!bus_.registerVirtualObject(path_, this, QDBusConnection::SubPath) || !bus_.registerService(service_))
        throw std::runtime_error{"no place on the bus: " + service_.toStdString()};
}

Manager::~Manager() {
    bus_.unregisterService(service_);
    bus_.unregisterObject(path_);
}

bool Manager::handleMessage(const QDBusMessage& message, const QDBusConnection& bus) {
    calls << message.member() + u' ' + joined(message.arguments());
    if (!answers) {
        unanswered_ << message;
        return true;
    }
    return bus.send(reply(message));
}

void Manager::answerNow() {
    answers = true;
    for (const QDBusMessage& call : std::exchange(unanswered_, {}))
        bus_.send(reply(call));
}

UnitManager::UnitManager()
    : Manager(QDBusConnection::sessionBus(), u"org.freedesktop.systemd1"_s, u"/org/freedesktop/systemd1"_s) {}

QDBusMessage UnitManager::reply(const QDBusMessage& call) {
    if (call.member() == refused)
        return call.createErrorReply(QDBusError::AccessDenied, u"Permission denied"_s);
    if (call.member() == u"EnableUnitFiles"_s)
        state = u"enabled"_s;
    else if (call.member() == u"DisableUnitFiles"_s)
        state = u"disabled"_s;
    return call.member() == u"GetUnitFileState"_s ? call.createReply(state) : call.createReply();
}

LoginStandIn::LoginStandIn() {
    const QByteArray session = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    bus_ = std::make_unique<ScratchBus>();
    qputenv("DBUS_SESSION_BUS_ADDRESS", session);
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus_->address().toUtf8());
    object_ = std::make_unique<Object>(QDBusConnection::connectToBus(bus_->address(), LoginConnection),
                                       u"org.freedesktop.login1"_s, u"/org/freedesktop/login1"_s);
}

LoginStandIn::~LoginStandIn() {
    qunsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    object_.reset();
    QDBusConnection::disconnectFromBus(LoginConnection);
}

QDBusMessage LoginStandIn::Object::reply(const QDBusMessage& call) {
    if (call.member() == u"Get"_s) {
        const QString user = u"/org/freedesktop/login1/user/_%1"_s.arg(getuid());
        if (call.path() != user ||
            call.arguments() != QVariantList{u"org.freedesktop.login1.User"_s, u"Linger"_s})
            return call.createErrorReply(QDBusError::UnknownObject, u"no such property"_s);
        return call.createReply(QVariant::fromValue(QDBusVariant{linger}));
    }
    if (refuses)
        return call.createErrorReply(QDBusError::AccessDenied, u"Permission denied"_s);
    linger = call.arguments().value(1).toBool();
    return call.createReply();
}

QDBusPendingCall askWhetherItIsAService() {
    QDBusMessage get = QDBusMessage::createMethodCall(u"org.tessaly.Server"_s, u"/org/tessaly/Server"_s,
                                                      u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    get << u"org.tessaly.Server1"_s << u"IsService"_s;
    return QDBusConnection::sessionBus().asyncCall(get);
}

}  // namespace tessaly::test
