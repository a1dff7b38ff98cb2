#include "console/maintenance/PassEvents.h"

#include <QCoreApplication>
#include <QEvent>
#include <QWidget>

#include "console/maintenance/SharedRead.h"

namespace tessaly::maintenance {

namespace {

bool isInput(QEvent::Type type) {
    switch (type) {
        case QEvent::MouseButtonPress:
        case QEvent::MouseButtonRelease:
        case QEvent::MouseButtonDblClick:
        case QEvent::KeyPress:
        case QEvent::KeyRelease:
        case QEvent::Shortcut:
        case QEvent::ShortcutOverride:
        case QEvent::InputMethod:
        case QEvent::TouchBegin:
        case QEvent::TouchEnd:
            return true;
        default:
            return false;
    }
}

}  // namespace

PassEvents::PassEvents(SharedRead& read, QWidget& form) : read_(read), form_(form) {
    QCoreApplication::instance()->installEventFilter(this);
}

void PassEvents::handle() {
    QCoreApplication::processEvents();
}

void PassEvents::handleOwn() {
    ownOnly_ = true;
    QCoreApplication::processEvents();
    ownOnly_ = false;
}

bool PassEvents::eventFilter(QObject* watched, QEvent* event) {
    read_.letGo();
    if (!ownOnly_ || !watched->isWidgetType() || !isInput(event->type()))
        return false;
    return static_cast<QWidget*>(watched)->window() != &form_;
}

}  // namespace tessaly::maintenance
