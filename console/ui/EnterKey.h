#pragma once

class QWidget;

namespace tessaly::ui {

/// Lets Return and the keypad's Enter press the push button of the window that has the focus. Dialogs do that
/// by themselves, other windows do not. The keys work as the space bar does: the button is pressed when the
/// key is released, so that a key that is held down presses it once, and what the button opens gets none of
/// its repeats. Called once for a window, for all buttons that it has or will have.
void enterPressesButtons(QWidget* window);

}  // namespace tessaly::ui
