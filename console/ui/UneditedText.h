#pragma once

#include <QString>

class QLineEdit;

// What a text box was given, kept as long as nobody edits the box: it cuts what is longer than its limit, and
// a form that stored what the box shows would change data that nobody touched. Every form shows what it read,
// and takes what it stores, by these.

namespace tessaly::ui {

/// Shows a text that was read.
void showText(QLineEdit* box, const QString& text);

/// True from showText() until the box's text changes, by whomever.
[[nodiscard]] bool isUntouched(const QLineEdit* box);

/// The text as it was read while the box is untouched, and what the box shows otherwise.
[[nodiscard]] QString textOf(const QLineEdit* box);

}  // namespace tessaly::ui
