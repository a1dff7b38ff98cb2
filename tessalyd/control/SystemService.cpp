#include "tessalyd/control/SystemService.h"

#include <QDBusMessage>
#include <QStringList>

#include "tessalyd/Log.h"

using namespace Qt::StringLiterals;

namespace tessaly::tessalyd {

namespace {

/// Milliseconds; two calls fit into what a console waits for one of its own.
constexpr int Patience = 800;

const QString Unit = u"tessalyd.service"_s;

QDBusMessage toManager(const QString& method, const QVariantList& arguments) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(u"org.freedesktop.systemd1"_s, u"/org/freedesktop/systemd1"_s,
                                       u"org.freedesktop.systemd1.Manager"_s, method);
    message.setArguments(arguments);
    message.setAutoStartService(false);  // the bus has a file for the name that starts nothing
    return message;
}

}  // namespace

void SystemService::enable() {
    constexpr bool RuntimeOnly = false;
    constexpr bool Force = true;  // a link that an older installation left
    if (call(u"EnableUnitFiles"_s, {QStringList{Unit}, RuntimeOnly, Force}).type() ==
        QDBusMessage::ReplyMessage)
        reload();
}

void SystemService::disable() {
    constexpr bool RuntimeOnly = false;
    if (call(u"DisableUnitFiles"_s, {QStringList{Unit}, RuntimeOnly}).type() == QDBusMessage::ReplyMessage)
        reload();
}

bool SystemService::isEnabled() const {
    const QDBusMessage reply = call(u"GetUnitFileState"_s, {Unit});
    return reply.type() == QDBusMessage::ReplyMessage &&
           reply.arguments().value(0).toString() == u"enabled"_s;
}

QDBusMessage SystemService::call(const QString& method, const QVariantList& arguments) const {
    const QDBusMessage reply = bus_.call(toManager(method, arguments), QDBus::Block, Patience);
    if (reply.type() != QDBusMessage::ReplyMessage)
        OFLOG_WARN(serverLog(),
                   "systemd: " << qUtf8Printable(method) << ": " << qUtf8Printable(reply.errorMessage()));
    return reply;
}

void SystemService::reload() {
    bus_.send(toManager(u"Reload"_s, {}));  // takes long, and nothing here depends on it
}

}  // namespace tessaly::tessalyd
