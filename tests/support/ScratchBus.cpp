#include "tests/support/ScratchBus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <stdexcept>

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

void write(const QString& path, const QString& text) {
    QFile file{path};
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw std::runtime_error("cannot write " + path.toStdString());
    file.write(text.toUtf8());
}

}  // namespace

ScratchBus::ScratchBus() : address_(u"unix:path="_s + folder_.filePath(u"bus"_s)) {
    QDir{folder_.path()}.mkdir(u"services"_s);
    write(folder_.filePath(u"bus.conf"_s),
          u"<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
          "  \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
          "<busconfig><type>session</type><listen>%2</listen><servicedir>%1/services</servicedir>\n"
          "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
          "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n"_s.arg(folder_.path(),
                                                                                       address_));
    start();
    qputenv("DBUS_SESSION_BUS_ADDRESS", address_.toUtf8());
}

ScratchBus::~ScratchBus() {
    stop();
}

void ScratchBus::start() {
    daemon_ = std::make_unique<QProcess>();
    daemon_->start(u"dbus-daemon"_s, {u"--config-file="_s + folder_.filePath(u"bus.conf"_s), u"--nofork"_s,
                                      u"--print-address"_s});
    if (!daemon_->waitForReadyRead())
        throw std::runtime_error("no session bus");
}

void ScratchBus::stop() {
    if (!daemon_)
        return;
    daemon_->terminate();
    daemon_->waitForFinished();
    daemon_.reset();
}

void ScratchBus::offer(const QString& name, const QString& command) const {
    write(folder_.filePath(u"services/"_s + name + u".service"_s),
          u"[D-BUS Service]\nName=%1\nExec=%2\n"_s.arg(name, command));
    reload();
}

void ScratchBus::withdraw(const QString& name) const {
    QFile::remove(folder_.filePath(u"services/"_s + name + u".service"_s));
    reload();
}

void ScratchBus::reload() const {
    const QString bus = u"org.freedesktop.DBus"_s;
    QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(bus, u"/org/freedesktop/DBus"_s, bus, u"ReloadConfig"_s));
}

}  // namespace tessaly::test
