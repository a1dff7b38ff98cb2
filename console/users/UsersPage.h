#pragma once

#include "console/ui/ListPanel.h"
#include "console/users/UserList.h"

namespace tessaly::users {

/// The page "Users" of the main window.
class UsersPage : public ui::ListPanel {
    Q_OBJECT

  public:
    explicit UsersPage(UserList& users, QWidget* parent = nullptr);

    void LoadUsers();

  private:
    void edit(const QString& name);
    void cmdModifyUser_Click();
    void cmdDelUser_Click();

    UserList& users_;
};

}  // namespace tessaly::users
