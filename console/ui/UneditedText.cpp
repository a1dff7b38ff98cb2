#include "console/ui/UneditedText.h"

#include <QLineEdit>
#include <QVariant>

namespace tessaly::ui {

namespace {

constexpr const char* TextRead = "TextRead";

}  // namespace

void showText(QLineEdit* box, const QString& text) {
    box->setText(text);
    box->setProperty(TextRead, {});  // an empty text would not give way to a null one, being equal
    box->setProperty(TextRead, text);
    QObject::connect(
        box, &QLineEdit::textChanged, box, [box] { box->setProperty(TextRead, {}); },
        Qt::SingleShotConnection);
}

bool isUntouched(const QLineEdit* box) {
    return box->property(TextRead).isValid();
}

QString textOf(const QLineEdit* box) {
    return isUntouched(box) ? box->property(TextRead).toString() : box->text();
}

}  // namespace tessaly::ui
