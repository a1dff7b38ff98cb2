#include "tests/support/Console.h"

#include <QApplication>
#include <QTimer>

#include "console/ui/ConsoleEnd.h"

namespace tessaly::test {

std::optional<int> takeConsoleEnd() {
    if (!ui::isConsoleEnding())
        return std::nullopt;
    const int status = ui::consoleStatus();
    ui::resetConsoleEnd();
    // An exit that no outer loop has taken keeps later ones from running; an exec of the application clears
    // it. Not by quit(), which would close the windows and so end the console once more.
    QTimer::singleShot(0, qApp, [] { QCoreApplication::exit(); });
    QApplication::exec();
    return status;
}

}  // namespace tessaly::test
