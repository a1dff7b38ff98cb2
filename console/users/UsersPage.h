#pragma once

#include "console/session/MainWindowOperations.h"
#include "console/ui/ListPanel.h"

namespace tessaly::users {

/// The page "Users" of the main window.
class UsersPage : public ui::ListPanel {
    Q_OBJECT

  public:
    explicit UsersPage(MainWindowOperations& window, QWidget* parent = nullptr);

    void LoadUsers();

  private:
    void edit(const QString& name);
    void cmdModifyUser_Click();
    void cmdDelUser_Click();

    MainWindowOperations& window_;
};

}  // namespace tessaly::users
