#pragma once

#include <QString>

class QPoint;
class QWidget;

namespace tessaly::test::real {

// Keys and clicks as the desktop delivers them: a key goes to the window that has the keyboard, a click to
// whatever lies topmost under the pointer, and a modal window keeps either from the others. For tests with a
// screen (tessaly_test's SCREEN). All return as soon as the input is under way; what it does is to be waited
// for (QTRY_), and input that is sent in order arrives in order. They throw std::runtime_error where nothing
// could be sent.

/// True as soon as the window is on the screen and has the keyboard; false when it does not get it. To be
/// asked before the first key for a window that has just come up.
[[nodiscard]] bool hasKeyboard(QWidget& window);

/// A key by its name in the X window system, with its modifiers: "Tab", "Return", "alt+s", "shift+Tab".
void press(const QString& key);
/// The two halves of press(): a key that is held down repeats as the window system has it.
void hold(const QString& key);
void release(const QString& key);
/// The keys of a text.
void type(const QString& text);
/// Moves the pointer to the middle of the widget and presses the left button there, whatever lies there.
void click(const QWidget& widget);
/// Moves the pointer to a place within the widget, by way of one beside it.
void hover(const QWidget& widget, const QPoint& place);

}  // namespace tessaly::test::real
