#include "console/printers/PrintersPage.h"

#include "console/printers/frmDcmPrinter.h"
#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/Mnemonics.h"
#include "console/ui/Text.h"
#include "db/Query.h"

namespace tessaly::printers {

using namespace Qt::StringLiterals;

PrintersPage::PrintersPage(PrinterList& printers, QWidget* parent)
    : ListPanel(u"lstDcmPrinters"_s,
                {{.title = u"Name"_s, .inches = 1.05},
                 {.title = u"AE Title"_s, .inches = 0.9},
                 {.title = u"Hostname"_s, .inches = 1},
                 {.title = u"Port"_s, .inches = 0.5},
                 {.title = u"Layout"_s, .inches = 1.1},
                 {.title = u"Size"_s, .inches = 0.9},
                 {.title = u"Medium"_s, .inches = 0.85},
                 {.title = u"Destination"_s, .inches = 0.9},
                 {.title = u"Orientation"_s, .inches = 0.9}},
                {.add = {u"cmdAddPrinter"_s, u"Add..."_s},
                 .modify = {u"cmdModifyPrinter"_s, u"Modify..."_s},
                 .remove = {u"cmdDeletePrinter"_s, u"Delete"_s}},
                parent),
      printers_(printers) {
    connect(this, &ListPanel::addClicked, this, ui::handler([this] { edit({}); }));
    connect(this, &ListPanel::modifyClicked, this, ui::handler([this] { cmdModifyPrinter_Click(); }));
    connect(this, &ListPanel::deleteClicked, this, ui::handler([this] { cmdDeletePrinter_Click(); }));
    ui::assignMnemonics(this);
}

void PrintersPage::LoadDicomPrinters() {
    ui::guarded(this, ui::BoxStyle::Plain, [this] {
        ui::ReportList::Load load{list()};  // before the statement, as is meant for this list alone
        db::Query query{Globals::DbConnection(), "SELECT * FROM Printers ORDER BY Name"};
        db::ResultSet rows = query.open();
        while (rows.next()) {
            QStringList cells;
            for (const char* column : {"Name", "AETitle", "Host", "Port", "Layout", "FilmSize", "Medium",
                                       "Destination", "Orientation"})
                cells << ui::text(rows, column);
            load.add(cells);
        }
    });
}

void PrintersPage::edit(const QString& name) {
    frmDcmPrinter{printers_, this}.Init(name);
}

void PrintersPage::cmdModifyPrinter_Click() {
    if (!list().isEmpty())
        edit(list().selectedText());
}

void PrintersPage::cmdDeletePrinter_Click() {
    ui::guarded(this, ui::BoxStyle::Critical, [this] {
        const QString name = list().selectedText();
        if (ui::messageBox(this, u"Are you sure you want to delete "_s + name + u"?"_s,
                           ui::BoxStyle::OkCancel) != ui::Answer::Ok)
            return;
        db::execute(Globals::DbConnection(), "DELETE FROM Printers WHERE Name=?", {ui::varchar(name)});
        printers_.LoadDicomPrinters();
    });
}

}  // namespace tessaly::printers
