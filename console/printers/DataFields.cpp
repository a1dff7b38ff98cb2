#include "console/printers/DataFields.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>

#include "console/ui/TypedNumber.h"
#include "console/ui/UneditedText.h"

namespace tessaly::printers {

namespace {

constexpr const char* DataField = "DataField";

template <class Visit>
void forEachField(const QWidget& form, Visit visit) {
    for (QWidget* control : form.findChildren<QWidget*>()) {
        const QString column = control->property(DataField).toString();
        if (!column.isEmpty())
            visit(control, column.toStdString());
    }
}

void show(QWidget* control, const QString& value) {
    if (auto* box = qobject_cast<QLineEdit*>(control))
        ui::showText(box, value);
    else if (auto* combo = qobject_cast<QComboBox*>(control))
        selectText(combo, value);
    else if (auto* check = qobject_cast<QCheckBox*>(control))
        check->setChecked(value.toDouble() != 0);  // any non-zero value is set
}

QString valueOf(QWidget* control) {
    if (const auto* box = qobject_cast<QLineEdit*>(control))
        return box->text();
    if (const auto* combo = qobject_cast<QComboBox*>(control))
        return combo->currentText();
    if (const auto* check = qobject_cast<QCheckBox*>(control))
        return QString::number(static_cast<int>(check->isChecked()));
    return {};
}

/// The row refuses a text that is no number, and names it as it was typed.
std::optional<std::string> numberOf(const QString& value) {
    if (value.isEmpty())
        return std::nullopt;
    const auto number = ui::enteredNumber(value);
    return (number ? number->text : value).toStdString();
}

}  // namespace

void setDataField(QWidget* control, const QString& column) {
    control->setProperty(DataField, column);
}

void showRow(const QWidget& form, const db::UpdatableRow& row) {
    forEachField(form, [&row](QWidget* control, const std::string& column) {
        if (const auto& value = row.value(column))
            show(control, QString::fromStdString(*value));
    });
}

void takeRow(const QWidget& form, db::UpdatableRow& row) {
    forEachField(form, [&row](QWidget* control, const std::string& column) {
        if (const auto* box = qobject_cast<QLineEdit*>(control); box != nullptr && ui::isUntouched(box))
            return;  // the column keeps what it has, whatever the box shows of it
        const QString value = valueOf(control);
        row.set(column, row.isText(column) ? value.toStdString() : numberOf(value));
    });
}

void selectText(QComboBox* combo, const QString& text) {
    constexpr auto Exactly = Qt::MatchExactly | Qt::MatchCaseSensitive;
    if (!text.isEmpty() && combo->findText(text, Exactly) < 0)
        combo->addItem(text);
    combo->setCurrentIndex(combo->findText(text, Exactly));
}

}  // namespace tessaly::printers
