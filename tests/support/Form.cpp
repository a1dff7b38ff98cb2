#include "tests/support/Form.h"

#include <QAbstractButton>
#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QTest>
#include <stdexcept>

namespace tessaly::test {

void Form::missing(const QString& what) {
    throw std::runtime_error("the window has no " + what.toStdString());
}

QString Form::text(const QString& name) const {
    QWidget& widget = find(name);
    if (const auto* box = qobject_cast<QLineEdit*>(&widget))
        return box->text();
    if (const auto* combo = qobject_cast<QComboBox*>(&widget))
        return combo->currentText();
    if (const auto* label = qobject_cast<QLabel*>(&widget))
        return label->text();
    if (const auto* button = qobject_cast<QAbstractButton*>(&widget))
        return button->text();
    missing(name + QStringLiteral(" with a text"));
}

void Form::type(const QString& name, const QString& text) const {
    auto& box = find<QLineEdit>(name);
    box.setFocus();
    box.selectAll();
    QTest::keyClick(&box, Qt::Key_Delete);
    // insert() is what typing and pasting come down to, and it takes characters that have no key.
    if (!box.isReadOnly())
        box.insert(text);
}

void Form::choose(const QString& name, const QString& entry) const {
    auto& combo = find<QComboBox>(name);
    const int index = combo.findText(entry);
    if (index < 0)
        missing(name + QStringLiteral(" with ") + entry);
    combo.setCurrentIndex(index);
}

void Form::check(const QString& name, bool checked) const {
    if (isChecked(name) != checked)
        click(name);
}

bool Form::isChecked(const QString& name) const {
    return find<QAbstractButton>(name).isChecked();
}

QStringList Form::labels() const {
    QStringList texts;
    for (const auto* label : window_->findChildren<QLabel*>())
        texts << label->text();
    return texts;
}

void Form::click(const QString& name) const {
    auto& button = find<QAbstractButton>(name);
    if (!button.isEnabled())
        missing(name + QStringLiteral(" that is enabled"));
    button.setFocus(Qt::MouseFocusReason);
    button.click();
}

void Form::trigger(const QString& action) const {
    auto* found = window_->findChild<QAction*>(action);
    if (found == nullptr)
        missing(action);
    found->trigger();
}

QAbstractItemModel& Form::model(const QString& list) const {
    return *find<QAbstractItemView>(list).model();
}

QList<QStringList> Form::rows(const QString& list) const {
    const QAbstractItemModel& items = model(list);
    QList<QStringList> rows;
    for (int row = 0; row < items.rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < items.columnCount(); ++column)
            cells << items.index(row, column).data().toString();
        rows << cells;
    }
    return rows;
}

QStringList Form::headers(const QString& list) const {
    const QAbstractItemModel& items = model(list);
    QStringList titles;
    for (int column = 0; column < items.columnCount(); ++column)
        titles << items.headerData(column, Qt::Horizontal).toString();
    return titles;
}

void Form::selectRow(const QString& list, const QString& firstCell) const {
    auto& view = find<QAbstractItemView>(list);
    const QModelIndexList found = view.model()->match(view.model()->index(0, 0), Qt::DisplayRole, firstCell,
                                                      1, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (found.isEmpty())
        missing(list + QStringLiteral(" with a row ") + firstCell);
    view.scrollTo(found.first());
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.visualRect(found.first()).center());
}

QStringList Form::selectedRows(const QString& list) const {
    QStringList texts;
    for (const QModelIndex& index : find<QAbstractItemView>(list).selectionModel()->selectedRows())
        texts << index.data().toString();
    return texts;
}

}  // namespace tessaly::test
