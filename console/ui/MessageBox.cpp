#include "console/ui/MessageBox.h"

#include <QMessageBox>

namespace tessaly::ui {

namespace {

QMessageBox::StandardButtons buttonsOf(BoxStyle style) {
    switch (style) {
        case BoxStyle::OkCancel:
            return QMessageBox::Ok | QMessageBox::Cancel;
        case BoxStyle::YesNo:
        case BoxStyle::CriticalYesNo:
            return QMessageBox::Yes | QMessageBox::No;
        case BoxStyle::Plain:
        case BoxStyle::Critical:
            break;
    }
    return QMessageBox::Ok;
}

Answer answerOf(int button) {
    switch (button) {
        case QMessageBox::Yes:
            return Answer::Yes;
        case QMessageBox::No:
            return Answer::No;
        case QMessageBox::Ok:
            return Answer::Ok;
        default:
            return Answer::Cancel;
    }
}

}  // namespace

Answer messageBox(QWidget* parent, const QString& text, BoxStyle style, const QString& title) {
    const bool critical = style == BoxStyle::Critical || style == BoxStyle::CriticalYesNo;
    const auto buttons = buttonsOf(style);
    QMessageBox box{critical ? QMessageBox::Critical : QMessageBox::NoIcon, title, text, buttons, parent};
    box.setTextFormat(Qt::PlainText);
    // A description can be copied into a mail; and only a label whose text can be selected breaks its line at
    // a carriage return.
    box.setTextInteractionFlags(Qt::TextSelectableByMouse);
    box.setDefaultButton(buttons.testFlag(QMessageBox::Yes) ? QMessageBox::Yes : QMessageBox::Ok);
    return answerOf(box.exec());
}

}  // namespace tessaly::ui
