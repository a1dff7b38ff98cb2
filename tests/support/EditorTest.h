#pragma once

#include <functional>

#include "tests/support/WindowTest.h"

namespace tessaly::test {

/// A page of the main window with a list, its three buttons and the dialog that they open. The key of a row
/// stands in the list's first column.
struct Editor {
    QString list;
    QString dialog;
    QString add;
    QString modify;
    QString remove;
    QString table;
    QString keyColumn;
    QString keyBox;         ///< the box of the dialog that shows the key
    QString question = {};  ///< of Delete, OK or Cancel; %1 is the key
    void (TessalyManager::*load)() = nullptr;
};

/// What a control shows or is given: a text, an entry, "1" or "0" for a check box; a button is pressed.
struct Value {
    QString control;
    QString value;
};
using Values = QList<Value>;

/// A control whose value is saved in a column, where it has one.
struct Field {
    QString control;
    QString column;
    QString value;
};
using Fields = QList<Field>;
[[nodiscard]] Values valuesOf(const Fields& fields);

/// What is typed, and the box with which Confirm refuses it.
struct Refusal {
    Values typed;
    Box box;
};

/// What the tests of the editors share. An empty key stands for a new row. Every box has to be listed: one
/// that is not expected, or does not come, fails the test.
class EditorTest : public WindowTest {
    Q_OBJECT

  protected:
    EditorTest(Page page, Editor editor);

    /// Presses Add..., or selects the row of that key and presses Modify...
    void open(const QString& key) const;
    /// Opens the dialog and lets `body` drive it, to its end, with the boxes that come up meanwhile.
    void edit(const QString& key, const QList<Box>& boxes, const std::function<void(Form)>& body) const;
    void edit(const QString& key, const std::function<void(Form)>& body) const { edit(key, {}, body); }
    /// The same with a box before the dialog.
    void editAfter(const Box& box, const QString& key, const std::function<void(Form)>& body) const;
    /// Opens the dialog, fills it, presses Confirm, and the dialog is gone.
    void save(const QString& key, const Values& typed) const;
    /// Answers Delete's question for the selected row; then the boxes.
    void remove(const QString& key, QMessageBox::StandardButton answer, const QList<Box>& boxes = {}) const;
    [[nodiscard]] Box question(const QString& key, QMessageBox::StandardButton answer) const;
    /// Loads the list as the window does.
    void reload() const;

    [[nodiscard]] QList<QStringList> listed() const { return window().rows(editor_.list); }
    [[nodiscard]] QString stored(const QString& key, const QString& column) const;
    [[nodiscard]] QList<QStringList> storedRows() const;
    [[nodiscard]] int count() const { return static_cast<int>(storedRows().size()); }

    [[nodiscard]] static QString shown(const Form& form, const QString& control);
    static void fill(const Form& form, const Values& values);

    static void checkShown(const Form& form, const Values& values);
    /// The boxes hold so many characters, given in code or typed.
    static void checkLimits(const Form& form, const QList<std::pair<QString, int>>& limits);
    /// The first stop has the focus, Tab leads to the others. Where there is a value, keys type it.
    static void checkTabOrder(const Form& form, const Values& stops);

    /// The list's titles and rows, of which the first is selected.
    void checkList(const QStringList& headers, const QList<QStringList>& rows) const;
    void checkStored(const QString& key, const Fields& fields) const;
    /// Confirm saves what is typed, the dialog shows it again, and another Confirm keeps it.
    void checkComesBack(const QString& key, const Fields& fields) const;
    /// Confirm refuses each; the dialog stays and shows what was typed; Cancel leaves the table as it was.
    void checkRefusals(const QString& key, const QList<Refusal>& refusals) const;
    /// Once its table is gone, the list's load tells why.
    void checkFailedLoad() const;
    /// Delete asks for the first row and goes on at OK alone; a failure is told, and so is success by the
    /// list. Whether the list is loaded again where nothing was deleted differs.
    void checkDeleteAsks(bool alwaysReloads) const;
    /// Delete, Enter and a double click on a row press the page's buttons, Alt+A presses Add...; the list
    /// has at least two rows. The question is answered so that nothing is deleted.
    void checkKeys(const Box& question) const;
    void checkKeys() const;

  private:
    Editor editor_;
};

}  // namespace tessaly::test
