#pragma once

namespace tessaly {

/// The start-up procedure: opens the configuration database, asks for the administrator, shows the main
/// window and runs the console to its end. Needs the process's QApplication; reports every failure in a
/// message box itself. Returns the process's exit status: 1 after a fault, 0 otherwise.
[[nodiscard]] int Main();

}  // namespace tessaly
