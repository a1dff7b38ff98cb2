#pragma once

#include <functional>

class QWidget;

namespace tessaly::ui {

/// Runs `body` whenever the focus leaves `box` for another control of its window; not when the window itself
/// goes to the background or a pop-up opens. The body is a handler: what it throws ends the console.
void onLeave(QWidget* box, std::function<void()> body);

/// Does what leaving `box` does, and lets it keep the focus: a form that is confirmed from inside a box takes
/// it for left. Nothing for a box that has no such body.
void asIfLeft(const QWidget* box);

}  // namespace tessaly::ui
