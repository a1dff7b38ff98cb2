#include "console/ui/Mnemonics.h"

#include <QAbstractButton>
#include <QLabel>
#include <QSet>
#include <QShortcut>

namespace tessaly::ui {

namespace {

/// The first letter of the caption that is still free, now taken; an empty sequence when there is none.
QKeySequence takeLetter(const QString& caption, QSet<QChar>& taken) {
    for (const QChar c : caption) {
        const QChar letter = c.toUpper();
        if (letter.isLetter() && !taken.contains(letter)) {
            taken.insert(letter);
            return {Qt::ALT | static_cast<Qt::Key>(letter.unicode())};
        }
    }
    return {};
}

}  // namespace

void assignMnemonics(QWidget* form) {
    const auto labels = form->findChildren<QLabel*>();
    const auto buttons = form->findChildren<QAbstractButton*>();

    QSet<QChar> taken;
    const auto takeMarked = [&taken](const QString& caption) {
        const QKeySequence marked = QKeySequence::mnemonic(caption);
        if (!marked.isEmpty())
            taken.insert(QChar(static_cast<char16_t>(marked[0].key())));
        return !marked.isEmpty();
    };
    QSet<const QObject*> done;
    for (const QLabel* label : labels) {
        if (takeMarked(label->text()))
            done.insert(label);
    }
    for (const QAbstractButton* button : buttons) {
        if (takeMarked(button->text()))
            done.insert(button);
    }
    for (QLabel* label : labels) {
        QWidget* field = label->buddy();
        if (field == nullptr || done.contains(label))
            continue;
        if (const QKeySequence keys = takeLetter(label->text(), taken); !keys.isEmpty()) {
            auto* shortcut = new QShortcut(keys, form);
            QObject::connect(shortcut, &QShortcut::activated, field,
                             [field] { field->setFocus(Qt::ShortcutFocusReason); });
        }
    }
    for (QAbstractButton* button : buttons) {
        if (!done.contains(button))
            button->setShortcut(takeLetter(button->text(), taken));
    }
}

}  // namespace tessaly::ui
