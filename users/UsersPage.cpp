#include "users/UsersPage.h"

#include <QtWidgets>

namespace tessaly::users {

using namespace Qt::StringLiterals;

UsersPage::UsersPage([[maybe_unused]] MainWindowOperations& window, QWidget* parent)
    : ListPanel(u"lstUsers"_s,
                {{.title = u"User"_s},
                 {.title = u"Signature"_s},
                 {.title = u"Update"_s},
                 {.title = u"Delete"_s},
                 {.title = u"Move"_s},
                 {.title = u"Send"_s},
                 {.title = u"Refert"_s},
                 {.title = u"Import"_s},
                 {.title = u"Backup"_s},
                 {.title = u"ROI"_s},
                 {.title = u"Mod. Tags"_s},
                 {.title = u"WLogin"_s},
                 {.title = u"Admin"_s}},
                {.add = {u"cmdAddUser"_s, u"Add..."_s},
                 .modify = {u"cmdModifyUser"_s, u"Modify..."_s},
                 .remove = {u"cmdDelUser"_s, u"Delete"_s}},
                parent),
      window_(window) {
    (void)window_;
}

void UsersPage::LoadUsers() {}

}  // namespace tessaly::users
