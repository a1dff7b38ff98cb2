#include "tessalyd/control/LoginManager.h"

#include <pwd.h>
#include <unistd.h>

#include <QDBusVariant>

using namespace Qt::StringLiterals;

namespace tessaly::tessalyd {

namespace {

const QString Service = u"org.freedesktop.login1"_s;
const QString ConnectionName = u"tessalyd-system"_s;

QString userName() {
    const passwd* user = getpwuid(getuid());
    return user != nullptr ? QString::fromLocal8Bit(user->pw_name) : QString::number(getuid());
}

}  // namespace

QDBusConnection LoginManager::bus() {
    if (QDBusConnection known{ConnectionName}; known.isConnected())
        return known;
    QDBusConnection::disconnectFromBus(ConnectionName);
    return QDBusConnection::connectToBus(QDBusConnection::SystemBus, ConnectionName);
}

QDBusMessage LoginManager::linger() {
    QDBusMessage message =
        QDBusMessage::createMethodCall(Service, u"/org/freedesktop/login1/user/_%1"_s.arg(getuid()),
                                       u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    message.setArguments({u"org.freedesktop.login1.User"_s, u"Linger"_s});
    return message;
}

QDBusMessage LoginManager::setLinger(bool isOn) {
    constexpr bool Interactive = false;  // nobody may be there to be asked for a password
    QDBusMessage message = QDBusMessage::createMethodCall(
        Service, u"/org/freedesktop/login1"_s, u"org.freedesktop.login1.Manager"_s, u"SetUserLinger"_s);
    message.setArguments({static_cast<uint>(getuid()), isOn, Interactive});
    return message;
}

bool LoginManager::isOn(const QDBusMessage& reply) {
    return reply.type() == QDBusMessage::ReplyMessage &&
           reply.arguments().value(0).value<QDBusVariant>().variant().toBool();
}

QString LoginManager::remedy() {
    return u"loginctl enable-linger "_s + userName();
}

}  // namespace tessaly::tessalyd
