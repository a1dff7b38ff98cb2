// A server for tests. Usage: fake_server FOLDER [silent]. "silent" never takes the server's name. Ends with
// its bus.

#include <QCoreApplication>
#include <QDBusConnection>

#include "console/server/DBusNames.h"
#include "fakeadaptor.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

int main(int argc, char* argv[]) {
    const QCoreApplication application{argc, argv};
    const QStringList arguments = QCoreApplication::arguments();
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect({}, u"/org/freedesktop/DBus/Local"_s, u"org.freedesktop.DBus.Local"_s, u"Disconnected"_s,
                QCoreApplication::instance(), SLOT(quit()));
    test::FakeObject object{arguments.at(1)};
    new ServerAdaptor{&object};
    const QString path = server::ObjectPath;
    const bool served = bus.registerObject(path, &object, QDBusConnection::ExportAdaptors) &&
                        bus.registerObject(path + u"/script"_s, &object, QDBusConnection::ExportAllSlots) &&
                        (arguments.contains(u"silent"_s) || bus.registerService(server::ServiceName));
    return served ? QCoreApplication::exec() : 1;
}
