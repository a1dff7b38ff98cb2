#include "console/network/DicomNode.h"

#include <QPushButton>

#include "console/network/AcceptedNodes.h"
#include "console/network/NodeNames.h"
#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/Text.h"
#include "console/ui/Verification.h"
#include "db/Query.h"

namespace tessaly::network {

using namespace Qt::StringLiterals;

DicomNode::DicomNode(NetworkLists& lists, QWidget* parent)
    : EditorDialog({.name = u"DicomNode"_s, .caption = u"Dicom Node"_s}, parent), lists_(lists) {
    auto* rows = new QFormLayout;
    body()->addLayout(rows);
    txtName_ = fields_.text(rows, u"Name"_s, u"txtName"_s, 16, &NodeRecord::name);
    txtAETitle_ = fields_.text(rows, u"AETitle"_s, u"txtAETitle"_s, 16, &NodeRecord::aeTitle);
    txtHost_ = fields_.text(rows, u"Host"_s, u"txtHost"_s, 64, &NodeRecord::host);
    txtPort_ = fields_.text(rows, u"Port"_s, u"txtPort"_s, 16, &NodeRecord::port);
    cmbLocalTitle_ =
        fields_.choice(rows, u"Local server"_s, u"cmbLocalTitle"_s, {}, &NodeRecord::localAeTitle);
    auto* services = new QHBoxLayout;
    rows->addRow(services);
    services->addWidget(fields_.check(u"Store"_s, u"chkStore"_s, &NodeRecord::store));
    services->addWidget(fields_.check(u"Query"_s, u"chkQuery"_s, &NodeRecord::query));
    services->addWidget(fields_.check(u"Print"_s, u"chkPrint"_s, &NodeRecord::print));
    services->addStretch();

    auto* test = new QPushButton(u"Verify"_s, this);
    test->setObjectName(u"cmdTest"_s);
    test->setToolTip(u"Do a C-ECHO Dicom Verify"_s);
    connect(test, &QPushButton::clicked, this, ui::handler([this] { cmdTest_Click(); }));
    addButtons({test});
}

void DicomNode::Init(const QString& name) {
    node_ = name;
    if (ui::guarded(this, ui::BoxStyle::Critical, [this] { fillLocalTitles(); }))
        fillAndShow([this] { fill(); });
}

void DicomNode::fillLocalTitles() {
    cmbLocalTitle_->clear();
    db::Query query{Globals::DbConnection(), "SELECT AETitle FROM Port"};
    db::ResultSet rows = query.open();
    while (rows.next())
        cmbLocalTitle_->addItem(ui::text(rows, "AETitle"));
    cmbLocalTitle_->setCurrentIndex(-1);
}

void DicomNode::fill() {
    if (node_.isEmpty()) {
        fields_.show(
            {.port = u"104"_s, .localAeTitle = cmbLocalTitle_->itemText(0), .store = true, .query = true});
        return;
    }
    db::Query query{Globals::DbConnection(), "SELECT * FROM DicomNodes WHERE Name=?"};
    db::ResultSet row = query.bind(1, ui::varchar(node_)).open();
    if (!row.next()) {
        // Deliberate: the dialog stays in update mode with its name unlocked, and Confirm then changes a row
        // only if the name typed exists.
        ui::messageBox(this, u"Node "_s + node_ + u" not found"_s, ui::BoxStyle::Critical);
        return;
    }
    txtName_->setReadOnly(true);
    fields_.show({.name = node_,
                  .aeTitle = ui::text(row, "AETitle"),
                  .host = ui::text(row, "Host"),
                  .port = ui::text(row, "Port"),
                  .localAeTitle = ui::text(row, "LocalAETitle"),
                  .store = row.flag("Store"),
                  .query = row.flag("Query"),
                  .print = row.flag("Print")});
}

bool DicomNode::FormValidate() {
    return isFilled(txtName_, u"Node Name cannot be empty"_s) &&
           isFilled(txtHost_, u"Host name cannot be empty"_s) &&
           isFilled(txtPort_, u"Port cannot be empty"_s) &&
           isFilled(txtAETitle_, u"AETitle cannot be empty"_s) &&
           nameIsFree(this, fields_.read().name, NameSpace::FtpNodes);
}

bool DicomNode::save() {
    const NodeRecord node = fields_.read();
    writeRow(node);
    // Not in one transaction with the row: a node that is not yet accepted everywhere is still a node.
    if (node_.isEmpty())
        AcceptedNodes{}.acceptOnEveryPort(node.name);
    return true;
}

void DicomNode::writeRow(const NodeRecord& node) const {
    db::execute(Globals::DbConnection(),
                node_.isEmpty()
                    ? "Insert into DicomNodes (AETitle, LocalAETitle, Host, Port, Store, Query, Print, Name) "
                      "values(?,?,?,?,?,?,?,?)"
                    : "Update DicomNodes set AETitle=?, LocalAETitle=?, Host=?, Port=?, Store=?, Query=?, "
                      "Print=?  WHERE Name=?",
                {ui::varchar(node.aeTitle), ui::varchar(node.localAeTitle), ui::varchar(node.host),
                 ui::varchar(node.port), db::integer(node.store), db::integer(node.query),
                 db::integer(node.print), ui::varchar(node.name)});
}

void DicomNode::reload() {
    lists_.LoadNodes();
    lists_.LoadPortNodes(lists_.selectedPort());
    Globals::setConfigChanged(true);
}

void DicomNode::cmdTest_Click() {
    ui::guarded(this, ui::BoxStyle::Critical, [this] {
        const NodeRecord node = fields_.read();
        if (ui::EchoVerify(this, node.host, node.port, node.localAeTitle, node.aeTitle))
            ui::messageBox(this, u"Verify Succeded"_s);
        else
            ui::messageBox(this, u"Verify Error"_s, ui::BoxStyle::Critical);
    });
}

}  // namespace tessaly::network
