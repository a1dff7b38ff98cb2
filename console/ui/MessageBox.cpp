#include "console/ui/MessageBox.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QMessageBox>
#include <QScreen>
#include <QShortcut>
#include <QThread>
#include <QWindow>
#include <algorithm>
#include <array>

#include "console/ui/ConsoleEnd.h"

namespace tessaly::ui {

using namespace std::chrono_literals;

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

void prepare(QMessageBox& box) {
    box.setTextFormat(Qt::PlainText);
    // A description can be copied into a mail; and only a label whose text can be selected breaks its line at
    // a carriage return.
    box.setTextInteractionFlags(Qt::TextSelectableByMouse);
    box.setDefaultButton(box.standardButtons().testFlag(QMessageBox::Yes) ? QMessageBox::Yes
                                                                          : QMessageBox::Ok);
}

/// The part of the screen of that size, beside what is there, where there is room.
QPoint placeBeside(const QRect& there, const QSize& size, const QRect& screen) {
    const std::array<QPoint, 4> sides{
        QPoint{there.left(), there.bottom() + 1}, QPoint{there.left(), there.top() - size.height()},
        QPoint{there.right() + 1, there.top()}, QPoint{there.left() - size.width(), there.top()}};
    for (QPoint place : sides) {
        place.rx() = std::max(screen.left(), std::min(place.x(), screen.right() + 1 - size.width()));
        place.ry() = std::max(screen.top(), std::min(place.y(), screen.bottom() + 1 - size.height()));
        if (!QRect{place, size}.intersects(there))
            return place;
    }
    return screen.topLeft();
}

/// Blocks until the window manager has placed the form, half a second at most. True if it has.
bool awaitPlace(const QWindow& form) {
    const QDeadlineTimer patience{500ms};
    while (!form.isExposed() && !patience.hasExpired()) {
        QCoreApplication::processEvents();
        QThread::msleep(1);
    }
    return form.isExposed();
}

/// Where a window of that size is to be shown so that neither it nor its frame, which has the measures of the
/// form's, covers the form.
QPoint besideForm(const QWindow& form, const QSize& size) {
    const QMargins frame = form.frameMargins();
    // The place of a window that is not on the screen yet is taken for its frame's by one window manager, for
    // its content's by the next: there is room for the frame either way.
    const QSize room = size.grownBy(frame) + QSize{frame.left(), frame.top()};
    return placeBeside(form.frameGeometry(), room, form.screen()->availableGeometry()) +
           QPoint{frame.left(), frame.top()};
}

/// Puts a box beside a form which a slow window manager places only after the box was shown.
class LatePlacement : public QObject {
  public:
    LatePlacement(QMessageBox& box, QWindow& form) : QObject(&box), box_(box), form_(form) {
        form.installEventFilter(this);
    }
    bool eventFilter(QObject* /*watched*/, QEvent* event) override {
        if (event->type() == QEvent::Expose && form_.isExposed()) {
            form_.removeEventFilter(this);
            box_.move(besideForm(form_, box_.size()));
        }
        return false;
    }

  private:
    QMessageBox& box_;
    QWindow& form_;
};

}  // namespace

Answer messageBox(QWidget* parent, const QString& text, BoxStyle style, const QString& title) {
    const bool critical = style == BoxStyle::Critical || style == BoxStyle::CriticalYesNo;
    const auto buttons = buttonsOf(style);
    QMessageBox box{critical ? QMessageBox::Critical : QMessageBox::NoIcon, title, text, buttons, parent};
    prepare(box);
    return answerOf(box.exec());
}

bool messageBoxBeside(QWidget& form, const QString& text) {
    QMessageBox box{QMessageBox::NoIcon, {}, text, QMessageBox::Ok, &form};
    prepare(box);
    box.setModal(false);  // which a message box is by itself
    for (auto* button : form.findChildren<QAbstractButton*>()) {
        if (!button->shortcut().isEmpty())
            QObject::connect(new QShortcut(button->shortcut(), &box), &QShortcut::activated, button,
                             &QAbstractButton::click);
    }
    if (QWindow* const there = form.windowHandle()) {
        if (!awaitPlace(*there))
            new LatePlacement{box, *there};  // owned by the box
        box.ensurePolished();
        box.move(besideForm(*there, box.sizeHint()));
    }
    QEventLoop standing;
    QObject::connect(&box, &QDialog::finished, &standing, &QEventLoop::quit);
    box.show();
    standing.exec();
    return !isConsoleEnding();
}

}  // namespace tessaly::ui
