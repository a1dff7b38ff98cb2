#include "console/ui/EnterKey.h"

#include <QApplication>
#include <QKeyEvent>
#include <QPushButton>

namespace tessaly::ui {

namespace {

/// A key that a button does not take goes on to its parents, up to the window.
class EnterKey : public QObject {
  public:
    explicit EnterKey(QWidget* window) : QObject(window), window_(window) {
        window->installEventFilter(this);
    }

    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease)
            return QObject::eventFilter(watched, event);
        const auto& key = static_cast<const QKeyEvent&>(*event);
        auto* button = qobject_cast<QPushButton*>(window_->focusWidget());
        if (button == nullptr || (key.key() != Qt::Key_Return && key.key() != Qt::Key_Enter))
            return QObject::eventFilter(watched, event);
        QKeyEvent space{key.type(), Qt::Key_Space, key.modifiers(), {}, key.isAutoRepeat()};
        QApplication::sendEvent(button, &space);
        return true;
    }

  private:
    QWidget* window_;
};

}  // namespace

void enterPressesButtons(QWidget* window) {
    new EnterKey(window);  // owned by the window
}

}  // namespace tessaly::ui
