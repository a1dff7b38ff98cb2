#include "console/ui/EnterKey.h"

#include <QApplication>
#include <QKeyEvent>
#include <QPushButton>

namespace tessaly::ui {

namespace {

class EnterKey : public QObject {
  public:
    explicit EnterKey(QWidget* window) : QObject(window), window_(window) { qApp->installEventFilter(this); }

    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease)
            return false;
        const auto& key = static_cast<const QKeyEvent&>(*event);
        if (key.key() != Qt::Key_Return && key.key() != Qt::Key_Enter)
            return false;
        if (event->type() == QEvent::KeyRelease) {
            releasedAt_ = key.timestamp();
            return false;
        }
        return isRepeat(key) || (watched == window_ && pressButton());
    }

  private:
    /// X11 repeats a key by a release and a press of the same time. The toolkit marks them as repeats only if
    /// the press has arrived when it comes to the release.
    [[nodiscard]] bool isRepeat(const QKeyEvent& key) const {
        constexpr quint64 FasterThanAnyHand = 5;  // ms
        const quint64 time = key.timestamp();     // 0: unknown
        return key.isAutoRepeat() ||
               (time != 0 && time >= releasedAt_ && time - releasedAt_ <= FasterThanAnyHand);
    }

    /// For a key that the button did not take, and that has come up to the window.
    [[nodiscard]] bool pressButton() const {
        auto* button = qobject_cast<QPushButton*>(window_->focusWidget());
        if (button != nullptr)
            button->click();
        return button != nullptr;
    }

    QWidget* window_;
    quint64 releasedAt_ = 0;  // ms, of the window system
};

}  // namespace

void enterPressesButtons(QWidget* window) {
    new EnterKey(window);  // owned by the window
}

}  // namespace tessaly::ui
