// In the server's place: takes its name on the session bus and stays there.
#include <QCoreApplication>
#include <QDBusConnection>

int main(int argc, char** argv) {
    const QCoreApplication app{argc, argv};
    return QDBusConnection::sessionBus().registerService(QStringLiteral("org.tessaly.Server"))
               ? QCoreApplication::exec()
               : 1;
}
