#pragma once

#include <QString>

class QWidget;

namespace tessaly::ui {

/// Icon and buttons of a message box, by style number.
enum class BoxStyle { Plain = 0, OkCancel = 1, YesNo = 4, Critical = 16, CriticalYesNo = 20 };

enum class Answer { Ok = 1, Cancel = 2, Yes = 6, No = 7 };

/// Shows a real, modal message box and waits for its answer. The text is shown as it stands, never as rich
/// text. Escape answers Cancel or No where there is one.
Answer messageBox(QWidget* parent, const QString& text, BoxStyle style = BoxStyle::Plain,
                  const QString& title = {});

/// Shows a plain box that blocks no other window, beside a form and never over it, and waits until it is
/// closed. The form's shortcuts work in the box as well. False when the console ends instead.
[[nodiscard]] bool messageBoxBeside(QWidget& form, const QString& text);

}  // namespace tessaly::ui
