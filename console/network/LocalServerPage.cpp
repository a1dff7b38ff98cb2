#include "console/network/LocalServerPage.h"

#include <QLabel>
#include <QVBoxLayout>

#include "console/network/DicomPort.h"
#include "console/network/NodeTitles.h"
#include "console/network/PortNodesSelection.h"
#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/Mnemonics.h"
#include "console/ui/Text.h"
#include "db/Query.h"
#include "db/Transaction.h"

namespace tessaly::network {

using namespace Qt::StringLiterals;

LocalServerPage::LocalServerPage(NetworkLists& lists, QWidget* parent)
    : QWidget(parent),
      lists_(lists),
      ports_(new ui::ListPanel(u"lstPorts"_s,
                               {{.title = u"Port"_s, .inches = 0.8},
                                {.title = u"AETitle"_s, .inches = 2.3},
                                {.title = u"Max. Connections"_s, .inches = 1.3},
                                {.title = u"Decode"_s, .inches = 0.7, .alignment = Qt::AlignHCenter},
                                {.title = u"Root dir"_s, .inches = 4}},
                               {.add = {u"cmdAddPort"_s, u"Add..."_s},
                                .modify = {u"cmdEditPort"_s, u"Modify..."_s},
                                .remove = {u"cmdDelPort"_s, u"Delete"_s}},
                               this)),
      lblAcceptedNodes_(new QLabel(u"Accepted nodes"_s, this)),
      portNodes_(new ui::ListPanel(
          u"lstPortNodes"_s, nodeColumns(),
          {.add = {u"cmdAddPortNode"_s, u"Add..."_s}, .remove = {u"cmdDelPortNode"_s, u"Delete"_s}}, this)) {
    lblAcceptedNodes_->setObjectName(u"lblAcceptedNodes"_s);
    portNodes_->list().setSelectionMode(QAbstractItemView::ExtendedSelection);

    // The panels bring their own margins, which the label shares.
    const int margin = portNodes_->layout()->contentsMargins().left();
    lblAcceptedNodes_->setContentsMargins(margin, 0, margin, 0);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins({});
    column->setSpacing(0);
    column->addWidget(ports_, 1);
    column->addWidget(lblAcceptedNodes_);
    column->addWidget(portNodes_, 1);

    const auto on = [this](ui::ListPanel* panel, auto signal, auto body) {
        connect(panel, signal, this, ui::handler([this, body] { (this->*body)(); }));
    };
    connect(ports_, &ui::ListPanel::addClicked, this, ui::handler([this] { edit({}); }));
    on(ports_, &ui::ListPanel::modifyClicked, &LocalServerPage::cmdEditPort_Click);
    on(ports_, &ui::ListPanel::deleteClicked, &LocalServerPage::cmdDelPort_Click);
    on(portNodes_, &ui::ListPanel::addClicked, &LocalServerPage::cmdAddPortNode_Click);
    on(portNodes_, &ui::ListPanel::deleteClicked, &LocalServerPage::cmdDelPortNode_Click);
    connect(&ports_->list(), &ui::ReportList::rowChosen, this,
            ui::handler([this] { LoadPortNodes(selectedPort()); }));
    ui::assignMnemonics(this);
}

void LocalServerPage::LoadPorts() {
    ui::guarded(this, ui::BoxStyle::Plain, [this] {
        db::Query query{Globals::DbConnection(), "SELECT * FROM Port ORDER BY Port"};
        {
            db::ResultSet rows = query.open();
            ui::ReportList::Load load{ports_->list()};
            while (rows.next()) {
                const QString root = ui::text(rows, "Root");
                load.add({ui::text(rows, "Port"),
                          ui::text(rows, "AETitle") +
                              (rows.flag("CheckCalledAE") ? u" (Checked)"_s : u" (Unchecked)"_s),
                          ui::text(rows, "MaxConnections"), ui::mark(!rows.flag("SaveCompressed")), root});
                Q_EMIT imageRootRead(root);
            }
        }
        LoadPortNodes(selectedPort());
    });
}

void LocalServerPage::LoadPortNodes(const QString& port) {
    ui::guarded(this, ui::BoxStyle::Plain, [&] {
        db::Query check{Globals::DbConnection(), "SELECT CheckCallingAE FROM Port WHERE Port = ?"};
        db::ResultSet checked = check.bind(1, ui::varchar(port)).open();
        (void)checked.next();  // a port without a row has no flag to read, which is the failure
        const bool isChecked = checked.flag("CheckCallingAE");

        db::Query query{Globals::DbConnection(),
                        "SELECT PortRemoteNodes.Name,DicomNodes.AETitle FROM PortRemoteNodes, DicomNodes "
                        " WHERE PortRemoteNodes.Port=? AND DicomNodes.Name = PortRemoteNodes.Name "
                        " ORDER BY DicomNodes.Name"};
        const QList<QStringList> nodes = readNodes(query.bind(1, ui::varchar(port)));

        lblAcceptedNodes_->setText(isChecked ? u"Accepted nodes"_s : u"Defined nodes (Unchecked)"_s);
        showNodes(portNodes_->list(), nodes);
    });
}

void LocalServerPage::edit(const QString& port) {
    DicomPort{lists_, this}.Init(port);
}

void LocalServerPage::cmdEditPort_Click() {
    if (!ports_->list().isEmpty())
        edit(selectedPort());
}

void LocalServerPage::cmdDelPort_Click() {
    ui::guarded(this, ui::BoxStyle::Critical, [this] {
        const QString port = selectedPort();
        const QString title = ports_->list().selectedText(1);
        if (ui::messageBox(
                this,
                u"Are you sure you want to delete the server "_s + title + u" on port "_s + port + u"?"_s,
                ui::BoxStyle::YesNo) != ui::Answer::Yes)
            return;
        db::Transaction transaction{Globals::DbConnection()};
        for (const auto* statement :
             {"DELETE FROM Port WHERE Port=?", "DELETE FROM PortRemoteNodes WHERE Port=?"})
            db::execute(Globals::DbConnection(), statement, {ui::varchar(port)});
        transaction.commit();
        LoadPorts();
        Globals::setConfigChanged(true);
    });
}

void LocalServerPage::cmdAddPortNode_Click() {
    PortNodesSelection{lists_, this}.Init(selectedPort());
}

void LocalServerPage::cmdDelPortNode_Click() {
    ui::guarded(this, ui::BoxStyle::Critical, [this] {
        const QString port = selectedPort();
        if (ui::messageBox(this, u"Are you sure you want to selected nodes for port "_s + port + u"?"_s,
                           ui::BoxStyle::YesNo) != ui::Answer::Yes)
            return;
        db::Transaction transaction{Globals::DbConnection()};
        db::Query remove{Globals::DbConnection(), "DELETE FROM PortRemoteNodes WHERE Port=? AND Name=?"};
        for (const QString& node : portNodes_->list().selectedTexts()) {
            remove.bindAll({ui::varchar(port), ui::varchar(node)}).execute();
            Globals::setConfigChanged(true);
        }
        transaction.commit();
        LoadPortNodes(port);
        Globals::setConfigChanged(true);
    });
}

}  // namespace tessaly::network
