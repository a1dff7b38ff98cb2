#pragma once

#include <QAbstractItemView>
#include <QString>
#include <QStringList>
#include <QWidget>

namespace tessaly::test {

/// Drives a window by the object names of its controls. An unknown name throws std::runtime_error.
class Form {
  public:
    explicit Form(QWidget& window) : window_(&window) {}

    [[nodiscard]] QWidget& window() const { return *window_; }

    /// The one child of that name and type.
    template <class Widget = QWidget>
    [[nodiscard]] Widget& find(const QString& name) const {
        auto* found = window_->findChild<Widget*>(name);
        if (found == nullptr)
            missing(name);
        return *found;
    }

    /// The text of a text box, combo box, label, button or check box.
    [[nodiscard]] QString text(const QString& name) const;
    /// Replaces the text of a text box as a user would: with its focus, select all, then typing.
    void type(const QString& name, const QString& text) const;
    /// Selects an entry of a combo box by its text; throws when there is none.
    void choose(const QString& name, const QString& entry) const;
    void check(const QString& name, bool checked) const;
    [[nodiscard]] bool isChecked(const QString& name) const;
    /// The texts of all labels, in the order in which they were made.
    [[nodiscard]] QStringList labels() const;
    /// A mouse click on an enabled button; throws on a disabled one.
    void click(const QString& name) const;
    /// Triggers a menu item.
    void trigger(const QString& action) const;

    /// Cells of a report list, row by row.
    [[nodiscard]] QList<QStringList> rows(const QString& list) const;
    [[nodiscard]] QStringList headers(const QString& list) const;
    /// Makes the row with that first cell the selected and current one.
    void selectRow(const QString& list, const QString& firstCell) const;
    /// First cells of the selected rows.
    [[nodiscard]] QStringList selectedRows(const QString& list) const;

  private:
    [[noreturn]] static void missing(const QString& what);
    [[nodiscard]] QAbstractItemModel& model(const QString& list) const;

    QWidget* window_;
};

}  // namespace tessaly::test
