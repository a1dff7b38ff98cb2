#include "console/ui/FocusOutValidator.h"

#include <QApplication>
#include <QFocusEvent>
#include <QLineEdit>
#include <QTabWidget>
#include <QTimer>

#include "console/ui/FocusOutFilter.h"
#include "console/ui/MessageBox.h"

namespace tessaly::ui {

namespace {

/// Brings the page of a tab control that `widget` stands on to the front.
void showPageOf(QWidget* widget) {
    for (QWidget* page = widget; page->parentWidget() != nullptr; page = page->parentWidget()) {
        // The pages of a tab control stand in a stack of its own.
        auto* tabs = qobject_cast<QTabWidget*>(page->parentWidget()->parentWidget());
        if (tabs != nullptr && tabs->indexOf(page) >= 0)
            tabs->setCurrentWidget(page);
    }
}

}  // namespace

FocusOutValidator::FocusOutValidator(QLineEdit* box, Fault fault)
    : QObject(box), box_(box), fault_(std::move(fault)) {
    onLeave(box, [this] { leave(); });
    qApp->installEventFilter(this);  // sees a click before the control that is clicked
}

bool FocusOutValidator::passes() {
    if (!isAtFault())
        return true;
    if (!refused_)
        refuse();
    return false;
}

bool FocusOutValidator::isAtFault() const {
    return !fault_(box_->text()).isEmpty();
}

bool FocusOutValidator::eventFilter(QObject* watched, QEvent* event) {
    // The tabs of a tab control change the page without taking the focus first, so the focus alone does not
    // tell; and when it does, the click that took it is still on its way.
    if (event->type() != QEvent::MouseButtonPress || !wouldLeave(watched))
        return false;
    return refused_ || !passes();
}

bool FocusOutValidator::wouldLeave(const QObject* clicked) const {
    const auto* target = qobject_cast<const QWidget*>(clicked);
    return target != nullptr && target != box_ && target->window() == box_->window() &&
           box_->window()->focusWidget() == box_ && !target->isAncestorOf(box_) && target->isEnabled() &&
           target->focusPolicy() != Qt::NoFocus;
}

void FocusOutValidator::leave() {
    if (!isAtFault() || refused_)
        return;
    if (box_->isVisible()) {
        refuse();
        return;
    }
    // The page is just being changed, or the window closes: known only when that is done.
    QTimer::singleShot(0, this, [this] {
        if (box_->window()->isVisible() && isAtFault())
            refuse();
    });
}

void FocusOutValidator::refuse() {
    refused_ = true;
    showPageOf(box_);
    // As if the window had been away: the control that loses the focus again was never really entered, and
    // its own checks have nothing to say.
    box_->setFocus(Qt::ActiveWindowFocusReason);
    messageBox(box_, fault_(box_->text()));
    QTimer::singleShot(0, this, [this] { refused_ = false; });
}

}  // namespace tessaly::ui
