#include "console/users/UsersPage.h"

#include <QHeaderView>

#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/Mnemonics.h"
#include "console/ui/Text.h"
#include "console/users/frmUser.h"
#include "db/Query.h"

namespace tessaly::users {

using namespace Qt::StringLiterals;

UsersPage::UsersPage(UserList& users, QWidget* parent)
    : ListPanel(u"lstUsers"_s,
                {{.title = u"User"_s},
                 {.title = u"Signature"_s},
                 {.title = u"Update"_s, .alignment = Qt::AlignHCenter},
                 {.title = u"Delete"_s, .alignment = Qt::AlignHCenter},
                 {.title = u"Move"_s, .alignment = Qt::AlignHCenter},
                 {.title = u"Send"_s, .alignment = Qt::AlignHCenter},
                 {.title = u"Refert"_s, .alignment = Qt::AlignHCenter},
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
      users_(users) {
    // Eleven columns are a twentieth of the list each: in a window of usual width their titles fit only so.
    constexpr double TitleScale = 0.82;
    QFont titles = list().header()->font();
    titles.setPointSizeF(titles.pointSizeF() * TitleScale);
    list().header()->setFont(titles);
    connect(this, &ListPanel::addClicked, this, ui::handler([this] { edit({}); }));
    connect(this, &ListPanel::modifyClicked, this, ui::handler([this] { cmdModifyUser_Click(); }));
    connect(this, &ListPanel::deleteClicked, this, ui::handler([this] { cmdDelUser_Click(); }));
    ui::assignMnemonics(this);
}

void UsersPage::LoadUsers() {
    ui::guarded(this, ui::BoxStyle::Plain, [this] {
        db::Query query{Globals::DbConnection(), "SELECT * FROM Users ORDER BY User"};
        db::ResultSet rows = query.open();
        ui::ReportList::Load load{list()};
        list().setFractions({0.15, 0.25, 0.05, 0.05, 0.05, 0.05, 0.05, 0.05, 0.05, 0.05, 0.05, 0.05, 0.05});
        while (rows.next()) {
            QStringList cells{ui::text(rows, "UserName"), ui::text(rows, "Signature")};
            for (const char* flag : {"DcmUpdate", "DcmDelete", "Move", "Send", "Refert", "Import", "Backup",
                                     "ROI", "ModTags", "WLogin", "DcmAdmin"})
                cells << ui::mark(rows.flag(flag));
            load.add(cells);
        }
    });
}

void UsersPage::edit(const QString& name) {
    frmUser{users_, this}.Init(name);
}

void UsersPage::cmdModifyUser_Click() {
    if (!list().isEmpty())
        edit(list().selectedText());
}

void UsersPage::cmdDelUser_Click() {
    ui::guarded(this, ui::BoxStyle::Critical, [this] {
        const QString name = list().selectedText();
        if (ui::messageBox(this, u"Are you sure you want to delete user ["_s + name + u"] ?"_s,
                           ui::BoxStyle::OkCancel) == ui::Answer::Ok)
            db::execute(Globals::DbConnection(), "DELETE FROM Users WHERE UserName=?", {ui::varchar(name)});
    });
    LoadUsers();
}

}  // namespace tessaly::users
