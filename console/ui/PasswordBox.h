#pragma once

#include <QLineEdit>

namespace tessaly::ui {

/// Shows an asterisk for every character of the box; its text is kept from screen readers and the clipboard.
inline void makePasswordBox(QLineEdit* box) {
    box->setEchoMode(QLineEdit::Password);
    // The style decides what a password box shows; here it is always an asterisk.
    box->setStyleSheet(
        QStringLiteral("QLineEdit { lineedit-password-character: 42; lineedit-password-mask-delay: 0 }"));
}

}  // namespace tessaly::ui
