#pragma once

namespace tessaly::ui {

/// Ends the console with `status` as soon as control is back in the outermost event loop: every modal dialog
/// returns as if it were cancelled. The first call decides the status. Destructors run as usual.
void endConsole(int status);

/// True from endConsole() on. Loops that process events themselves ask it after each turn.
[[nodiscard]] bool isConsoleEnding() noexcept;

/// The status given to endConsole(), 0 before.
[[nodiscard]] int consoleStatus() noexcept;

/// Forgets an earlier end; for a process that starts the console more than once, as tests do.
void resetConsoleEnd() noexcept;

}  // namespace tessaly::ui
