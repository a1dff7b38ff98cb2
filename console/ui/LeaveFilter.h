#pragma once

#include <functional>

class QWidget;

namespace tessaly::ui {

/// Runs `body` whenever the focus leaves `box` for another control of its window; not when the window itself
/// goes to the background or a pop-up opens. The body is a handler: what it throws ends the console.
void onLeave(QWidget* box, std::function<void()> body);

}  // namespace tessaly::ui
