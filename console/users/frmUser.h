#pragma once

#include "console/ui/EditorDialog.h"
#include "console/ui/FieldBinder.h"
#include "console/users/UserList.h"
#include "console/users/UserRecord.h"

namespace tessaly::users {

/// The editor of one user.
class frmUser : public ui::EditorDialog {
    Q_OBJECT

  public:
    frmUser(UserList& users, QWidget* parent);

    /// Fills the dialog with the user of that name, or with a new one for an empty name, and shows it
    /// modally. A failure is reported and the dialog not shown.
    void Init(const QString& name);
    [[nodiscard]] bool FormValidate() override;

  protected:
    [[nodiscard]] bool save() override;
    void reload() override;

  private:
    void addTexts();
    void addPermissions();
    void orderTabs();
    void fill();

    UserList& users_;
    ui::FieldBinder<UserRecord> fields_;
    QLineEdit* user_ = nullptr;
    QLineEdit* password1_ = nullptr;
    QLineEdit* password2_ = nullptr;
    QString loadedName_;          // trimmed; empty for a new user
    std::string storedPassword_;  // the bytes of UserPwd, whatever the boxes make of them
    QString shownPassword_;
};

}  // namespace tessaly::users
