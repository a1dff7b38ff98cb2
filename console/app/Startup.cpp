#include "console/app/Startup.h"

#include <QApplication>
#include <QIcon>
#include <memory>

#include "console/app/TessalyManager.h"
#include "console/app/frmLogin.h"
#include "console/session/Globals.h"
#include "console/ui/ConsoleEnd.h"
#include "console/ui/Guard.h"

namespace tessaly {

using namespace Qt::StringLiterals;

namespace {

/// False when the console is to end: refused, cancelled, or a fault in the check.
bool logIn() {
    frmLogin login;
    login.exec();
    return login.LoginSucceeded() && !ui::isConsoleEnding();
}

}  // namespace

int Main() {
    QApplication::setApplicationName(u"TessalyCfg"_s);
    QApplication::setApplicationVersion(QStringLiteral(TESSALY_VERSION));
    QApplication::setWindowIcon(QIcon{u":/icons/console.svg"_s});
    QApplication::setQuitOnLastWindowClosed(
        false);  // the main window's closing ends the console, nothing else

    std::unique_ptr<TessalyManager> window;
    const bool started = ui::guarded(nullptr, ui::BoxStyle::Critical, [&window] {
        db::Connection& connection = Globals::DbConnection();
        connection.setConnectString("DSN=DicomFDB");
        connection.setCursorDriver(db::Connection::CursorDriver::DriverFirst);
        connection.establish();
        Globals::setConfigChanged(false);
        Globals::EnsureFtpNodesTable();
        if (!logIn())
            return;
        window = std::make_unique<TessalyManager>();
        window->load();
        window->show();
    });
    if (!started)
        return 1;
    if (window && !ui::isConsoleEnding())
        QApplication::exec();
    return ui::consoleStatus();
}

}  // namespace tessaly
