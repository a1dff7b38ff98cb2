#pragma once

#include <QDialog>
#include <functional>

#include "console/ui/MessageBox.h"

class QLineEdit;
class QPushButton;
class QVBoxLayout;

namespace tessaly::ui {

/// What every editor of one record shares: Confirm and Cancel and the order validate, save, reload, close,
/// under one guard. Enter presses the button that has the focus, and Confirm from anywhere else. An editor's
/// constructor fills body() and ends with addButtons(); its public Init loads the record and calls
/// showModal().
class EditorDialog : public QDialog {
    Q_OBJECT

  public:
    /// Checks the fields and reports the first fault in a message box; false keeps the dialog open. A dialog
    /// in which nothing can be wrong leaves it as it is.
    [[nodiscard]] virtual bool FormValidate() { return true; }

  protected:
    struct Traits {
        QString name;  ///< object name, the form's own
        QString caption;
        BoxStyle saveFaults = BoxStyle::Critical;  ///< style of the box that reports a failed Confirm
    };
    EditorDialog(const Traits& traits, QWidget* parent);

    /// Where the fields go, above the row of buttons.
    [[nodiscard]] QVBoxLayout* body() const { return body_; }
    /// Adds the row of buttons, after the fields so that it is last in the tab order: the editor's own at the
    /// left, then Confirm and Cancel. Gives every field and button its Alt+letter.
    void addButtons(std::initializer_list<QPushButton*> sideButtons = {});

    /// Writes the record; throws, having left nothing half-written that its contract does not name. False
    /// when it reported a failure itself: the dialog stays open.
    [[nodiscard]] virtual bool save() = 0;
    /// Brings the main window's lists up to date after a save.
    virtual void reload() = 0;

    /// Shows the dialog and returns when it is closed.
    void showModal() { exec(); }
    /// Fills the dialog from the database and shows it, also when filling failed and said why.
    void fillAndShow(const std::function<void()>& fill);

    /// For FormValidate: true unless the box has no text at all, not even a blank; says `message` otherwise
    /// and takes the user to the box.
    [[nodiscard]] bool isFilled(QLineEdit* box, const QString& message, BoxStyle style = BoxStyle::Plain);

    /// The handler of Confirm. An editor whose validation is outside the guard overrides it.
    virtual void cmdOk_Click();
    /// Save, reload and close, unguarded.
    void saveAndClose();

    [[nodiscard]] const Traits& traits() const { return traits_; }

  private:
    Traits traits_;
    QVBoxLayout* body_;
};

}  // namespace tessaly::ui
