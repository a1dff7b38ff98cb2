#include "console/ui/Guard.h"

#include <QApplication>

#include "console/ui/ConsoleEnd.h"

namespace tessaly::ui {

void showFault(QWidget* parent, const std::exception& fault, BoxStyle style) {
    messageBox(parent, QString::fromUtf8(fault.what()), style);
}

void endByFault(const std::exception& fault) noexcept {
    // What is raised while the console already ends (a timer, a closing dialog) has nobody left to read it.
    if (isConsoleEnding())
        return;
    showFault(QApplication::activeModalWidget(), fault, BoxStyle::Critical);
    endConsole(1);
}

}  // namespace tessaly::ui
