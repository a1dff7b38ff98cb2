#pragma once

class QWidget;

namespace tessaly::ui {

/// Lets Return and the keypad's Enter press the push button of the window that has the focus; dialogs do that
/// by themselves, other windows do not. A key that is held down presses once: as long as the window lives,
/// the repeats of these keys reach no window of the application, for they would confirm what the button
/// opens. Called once for a window, for all buttons that it has or will have.
void enterPressesButtons(QWidget* window);

}  // namespace tessaly::ui
