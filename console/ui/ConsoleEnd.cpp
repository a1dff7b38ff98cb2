#include "console/ui/ConsoleEnd.h"

#include <QCoreApplication>
#include <optional>

namespace tessaly::ui {

namespace {

std::optional<int> endStatus;  // empty while the console runs

}  // namespace

void endConsole(int status) {
    if (!endStatus)
        endStatus = status;
    QCoreApplication::exit(*endStatus);
}

bool isConsoleEnding() noexcept {
    return endStatus.has_value();
}

int consoleStatus() noexcept {
    return endStatus.value_or(0);
}

void resetConsoleEnd() noexcept {
    endStatus.reset();
}

}  // namespace tessaly::ui
