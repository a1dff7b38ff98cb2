#include "console/network/FtpNodesPage.h"

#include "console/network/FTPNode.h"
#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/Mnemonics.h"
#include "console/ui/Text.h"
#include "db/Query.h"

namespace tessaly::network {

using namespace Qt::StringLiterals;

FtpNodesPage::FtpNodesPage(NetworkLists& lists, QWidget* parent)
    : ListPanel(u"lstFTPNodes"_s,
                {{.title = u"Name"_s, .inches = 1},
                 {.title = u"Host"_s, .inches = 1},
                 {.title = u"User"_s, .inches = 0.69},
                 {.title = u"Password"_s, .inches = 1},
                 {.title = u"Destination"_s, .inches = 1.74},
                 {.title = u"Format"_s}},
                {.add = {u"cmdFTPAdd"_s, u"Add..."_s},
                 .modify = {u"cmdFTPModify"_s, u"Modify..."_s},
                 .remove = {u"cmdFTPDelete"_s, u"Delete"_s}},
                parent),
      lists_(lists) {
    connect(this, &ListPanel::addClicked, this, ui::handler([this] { edit({}); }));
    connect(this, &ListPanel::modifyClicked, this, ui::handler([this] { cmdFTPModify_Click(); }));
    connect(this, &ListPanel::deleteClicked, this, ui::handler([this] { cmdFTPDelete_Click(); }));
    ui::assignMnemonics(this);
}

void FtpNodesPage::LoadFTPNodes() {
    ui::guarded(this, ui::BoxStyle::Plain, [this] {
        db::Query query{Globals::DbConnection(), "SELECT * FROM FtpNodes ORDER BY Name"};
        db::ResultSet rows = query.open();
        ui::ReportList::Load load{list()};
        while (rows.next()) {
            load.add({ui::text(rows, "Name"), ui::text(rows, "Host"), ui::text(rows, "UserName"),
                      ui::text(rows, "UserPwd"), ui::text(rows, "Destination"), ui::text(rows, "NodeType")});
        }
    });
}

void FtpNodesPage::edit(const QString& name) {
    FTPNode{lists_, this}.Init(name);
}

void FtpNodesPage::cmdFTPModify_Click() {
    if (!list().isEmpty())
        edit(list().selectedText());
}

void FtpNodesPage::cmdFTPDelete_Click() {
    ui::guarded(this, ui::BoxStyle::Critical, [this] {
        const QString name = list().selectedText();
        if (ui::messageBox(this, u"Are you sure you want to delete "_s + name + u"?"_s,
                           ui::BoxStyle::OkCancel) == ui::Answer::Ok)
            db::execute(Globals::DbConnection(), "DELETE FROM ftpNodes WHERE Name=?", {ui::varchar(name)});
    });
    LoadFTPNodes();
}

}  // namespace tessaly::network
