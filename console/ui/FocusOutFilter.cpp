#include "console/ui/FocusOutFilter.h"

#include <QFocusEvent>
#include <QWidget>

#include "console/ui/Guard.h"

namespace tessaly::ui {

namespace {

class FocusOutFilter : public QObject {
  public:
    FocusOutFilter(QWidget* box, std::function<void()> body) : QObject(box), body_(handler(std::move(body))) {
        box->installEventFilter(this);
    }

    void leave() { body_(); }

    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::FocusOut) {
            const auto reason = static_cast<QFocusEvent*>(event)->reason();
            if (reason != Qt::PopupFocusReason && reason != Qt::ActiveWindowFocusReason &&
                reason != Qt::MenuBarFocusReason)
                leave();
        }
        return QObject::eventFilter(watched, event);
    }

  private:
    std::function<void()> body_;
};

}  // namespace

void onLeave(QWidget* box, std::function<void()> body) {
    new FocusOutFilter(box, std::move(body));  // owned by the box
}

void asIfLeft(const QWidget* box) {
    for (QObject* child : box->children()) {
        if (auto* filter = dynamic_cast<FocusOutFilter*>(child))
            filter->leave();
    }
}

}  // namespace tessaly::ui
