#include "console/network/NodesPage.h"

#include "console/network/DicomNode.h"
#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/Mnemonics.h"
#include "console/ui/Text.h"
#include "db/Query.h"
#include "db/Transaction.h"

namespace tessaly::network {

using namespace Qt::StringLiterals;

NodesPage::NodesPage(NetworkLists& lists, QWidget* parent)
    : ListPanel(u"lstNodes"_s,
                {{.title = u"Name"_s, .inches = 1},
                 {.title = u"Host"_s, .inches = 1},
                 {.title = u"Port"_s, .inches = 0.69},
                 {.title = u"AE_Title"_s, .inches = 1},
                 {.title = u"Local server"_s, .inches = 1},
                 {.title = u"Storage"_s, .inches = 0.56, .alignment = Qt::AlignHCenter},
                 {.title = u"Query"_s, .inches = 0.56, .alignment = Qt::AlignHCenter},
                 {.title = u"Print"_s, .inches = 0.56, .alignment = Qt::AlignHCenter}},
                {.add = {u"cmdAddNode"_s, u"Add..."_s},
                 .modify = {u"cmdModifyNode"_s, u"Modify..."_s},
                 .remove = {u"cmdDelNode"_s, u"Delete"_s}},
                parent),
      lists_(lists) {
    connect(this, &ListPanel::addClicked, this, ui::handler([this] { edit({}); }));
    connect(this, &ListPanel::modifyClicked, this, ui::handler([this] { cmdModifyNode_Click(); }));
    connect(this, &ListPanel::deleteClicked, this, ui::handler([this] { cmdDelNode_Click(); }));
    ui::assignMnemonics(this);
}

void NodesPage::LoadNodes() {
    ui::guarded(this, ui::BoxStyle::Plain, [this] {
        db::Query query{Globals::DbConnection(), "SELECT * FROM DicomNodes ORDER BY Name"};
        db::ResultSet rows = query.open();
        ui::ReportList::Load load{list()};
        while (rows.next()) {
            load.add({ui::text(rows, "Name"), ui::text(rows, "Host"), ui::text(rows, "Port"),
                      ui::text(rows, "AETitle"), ui::text(rows, "LocalAETitle"), ui::mark(rows.flag("Store")),
                      ui::mark(rows.flag("Query")), ui::mark(rows.flag("Print"))});
        }
    });
}

void NodesPage::edit(const QString& name) {
    DicomNode{lists_, this}.Init(name);
}

void NodesPage::cmdModifyNode_Click() {
    if (!list().isEmpty())
        edit(list().selectedText());
}

void NodesPage::cmdDelNode_Click() {
    const bool done = ui::guarded(this, ui::BoxStyle::Critical, [this] {
        db::Transaction transaction{Globals::DbConnection()};  // meant: it is opened before the question
        const QString name = list().selectedText();
        if (ui::messageBox(this, u"Are you sure you want to delete "_s + name + u"?"_s,
                           ui::BoxStyle::OkCancel) == ui::Answer::Ok) {
            for (const auto* statement :
                 {"DELETE FROM DicomNodes WHERE Name=?", "DELETE FROM PortRemoteNodes WHERE Name=?"})
                db::execute(Globals::DbConnection(), statement, {ui::varchar(name)});
        }
        // Also after Cancel: whoever asks for a deletion gets fresh lists and the offer of a restart.
        transaction.commit();
        Globals::setConfigChanged(true);
        LoadNodes();
        lists_.LoadPortNodes(lists_.selectedPort());
    });
    if (!done)
        LoadNodes();
}

}  // namespace tessaly::network
