#include "console/ui/SpinButtons.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

namespace tessaly::ui {

using namespace Qt::StringLiterals;

SpinButtons::SpinButtons(const QString& name, QLineEdit* box, int minimum, int maximum, QWidget* parent)
    : QWidget(parent), box_(box), minimum_(minimum), maximum_(maximum) {
    setObjectName(name);
    setFixedHeight(box->sizeHint().height());
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    const auto addButton = [&](Qt::ArrowType arrow, const QString& meaning, int by) {
        constexpr int Width = 18;
        auto* button = new QToolButton(this);
        button->setArrowType(arrow);
        button->setAccessibleName(meaning);
        button->setAutoRepeat(true);
        button->setFocusPolicy(Qt::NoFocus);  // pressing it is no leaving of the box
        button->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Ignored);
        button->setFixedWidth(Width);
        connect(button, &QToolButton::clicked, this, [this, by] { step(by); });
        column->addWidget(button);
    };
    addButton(Qt::UpArrow, u"Increase"_s, +1);
    addButton(Qt::DownArrow, u"Decrease"_s, -1);
    box->installEventFilter(this);
}

bool SpinButtons::eventFilter(QObject* watched, QEvent* event) {
    if (watched == box_ && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Up || key == Qt::Key_Down) {
            step(key == Qt::Key_Up ? +1 : -1);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void SpinButtons::step(int by) {
    if (box_->isReadOnly())
        return;
    bool isNumber = false;
    const int shown = box_->text().toInt(&isNumber);
    // Counted in a wider type: the text may hold the largest number there is.
    const auto value =
        isNumber
            ? static_cast<int>(std::clamp<long long>(static_cast<long long>(shown) + by, minimum_, maximum_))
            : minimum_;
    if (isNumber && value == shown)
        return;
    box_->setText(QString::number(value));
    Q_EMIT changed(value);
}

}  // namespace tessaly::ui
