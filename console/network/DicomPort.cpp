#include "console/network/DicomPort.h"

#include <QPushButton>
#include <stdexcept>

#include "console/network/AcceptedNodes.h"
#include "console/session/Globals.h"
#include "console/ui/FolderPicker.h"
#include "console/ui/Guard.h"
#include "console/ui/Text.h"
#include "console/ui/TypedNumber.h"
#include "db/Query.h"
#include "db/Transaction.h"

namespace tessaly::network {

using namespace Qt::StringLiterals;

namespace {

constexpr int MostConnections = 100;
constexpr int RootLimit = 255;

}  // namespace

DicomPort::DicomPort(NetworkLists& lists, QWidget* parent)
    : EditorDialog({.name = u"DicomPort"_s, .caption = u"Port configuration"_s}, parent), lists_(lists) {
    auto* rows = new QFormLayout;
    body()->addLayout(rows);
    txtPort_ = fields_.text(rows, u"Port"_s, u"txtPort"_s, 16, &PortRecord::port);
    txtAETitle_ = fields_.text(rows, u"AETitle"_s, u"txtAETitle"_s, 16, &PortRecord::aeTitle);
    txtMaxConnections_ =
        fields_.text(rows, u"Max.connections"_s, u"txtMaxConnections"_s, 0, &PortRecord::maxConnections);
    txtRoot_ = fields_.text(rows, u"Root directory"_s, u"txtRoot"_s, RootLimit, &PortRecord::root);
    txtRoot_->setReadOnly(true);

    // The button that fills the box shares its row.
    auto* browse = new QPushButton(u"..."_s, this);
    browse->setObjectName(u"cmdRootDir"_s);
    browse->setFixedWidth(2 * browse->sizeHint().height());
    connect(browse, &QPushButton::clicked, this, ui::handler([this] { cmdRootDir_Click(); }));
    rows->removeWidget(txtRoot_);
    auto* rootRow = new QHBoxLayout;
    rows->setLayout(rows->rowCount() - 1, QFormLayout::FieldRole, rootRow);
    rootRow->addWidget(txtRoot_, 1);
    rootRow->addWidget(browse);

    body()->addWidget(fields_.check(u"Check called AE Title"_s, u"chkCalled"_s, &PortRecord::checkCalledAE));
    body()->addWidget(
        fields_.check(u"Check calling AE Title"_s, u"chkCalling"_s, &PortRecord::checkCallingAE));
    auto* decode =
        fields_.check(u"Decode DICOM compressed Syntaxes"_s, u"chkSaveCompressed"_s, &PortRecord::decode);
    decode->setToolTip(u"Save decoded DICOM Object to disk  if compressed"_s);
    body()->addWidget(decode);
    addButtons();
}

void DicomPort::Init(const QString& port) {
    if (ui::guarded(parentWidget(), ui::BoxStyle::Critical, [&] { LoadPort(port); }))
        showModal();
}

void DicomPort::LoadPort(const QString& port) {
    OldPort_ = port;
    OldAETitle_.clear();
    if (port.isEmpty()) {
        fields_.show({.maxConnections = u"10"_s});
        return;
    }
    db::Query query{Globals::DbConnection(), "SELECT * FROM Port WHERE Port=?"};
    db::ResultSet row = query.bind(1, ui::varchar(port)).open();
    if (!row.next()) {
        // Deliberate: Confirm then inserts a row, because a port without an old title counts as new.
        ui::messageBox(this, u"Port "_s + port + u" not found"_s, ui::BoxStyle::Critical);
        return;
    }
    OldAETitle_ = ui::text(row, "AETitle");
    fields_.show({.port = port,
                  .aeTitle = OldAETitle_,
                  .maxConnections = ui::text(row, "MaxConnections"),
                  .root = ui::text(row, "Root"),
                  .checkCallingAE = row.flag("CheckCallingAE"),
                  .checkCalledAE = row.flag("CheckCalledAE"),
                  .decode = !row.flag("SaveCompressed")});
}

bool DicomPort::FormValidate() {
    if (!isFilled(txtPort_, u"Port cannot be empty"_s) ||
        !isFilled(txtAETitle_, u"AETitle cannot be empty"_s) ||
        !isFilled(txtRoot_, u"Root directory cannot be empty"_s))
        return false;
    const int connections = ui::shortNumber(txtMaxConnections_->text());
    if (connections >= 1 && connections <= MostConnections)
        return true;
    ui::messageBox(this, u"Numero di connessioni errato"_s);
    txtMaxConnections_->setFocus();
    return false;
}

void DicomPort::cmdOk_Click() {
    if (FormValidate())
        ui::guarded(this, traits().saveFaults, [this] { saveAndClose(); });
}

bool DicomPort::save() {
    const PortRecord port = fields_.read();
    db::Transaction transaction{Globals::DbConnection()};
    writeRow(port);
    // Whether something was changed is seen in the text as typed, though the row gets it without blanks at
    // its ends: a blank added to a title reaches the nodes.
    if (OldAETitle_.isEmpty())
        AcceptedNodes{}.acceptEveryNode(port.port);
    else if (port.aeTitle != OldAETitle_)
        renameTitle(port.aeTitle);
    if (!OldPort_.isEmpty() && port.port != OldPort_)
        renamePort(port);
    transaction.commit();
    return true;
}

void DicomPort::writeRow(const PortRecord& port) const {
    const bool isNew = OldAETitle_.isEmpty();
    db::Query query{
        Globals::DbConnection(),
        isNew ? "Insert into Port (AETitle, MaxConnections, Root, CheckCallingAE, CheckCalledAE, "
                "SaveCompressed, Port) values(?,?,?,?,?,?,?)"
              : "Update Port set AETitle=?, MaxConnections=?, Root=?, CheckCallingAE=?, CheckCalledAE=?, "
                "SaveCompressed=?, Port=?  WHERE Port=?"};
    query.bindAll({ui::varchar(ui::trimmed(port.aeTitle)), db::integer(ui::shortNumber(port.maxConnections)),
                   ui::varchar(ui::trimmed(port.root)), db::bit(port.checkCallingAE),
                   db::bit(port.checkCalledAE), db::bit(!port.decode), ui::varchar(ui::trimmed(port.port))});
    if (!isNew)
        query.bind(8, ui::varchar(ui::trimmed(OldPort_)));
    query.execute();
}

/// Nodes that the old title was presented to, and the node that is this server itself, follow the new one.
void DicomPort::renameTitle(const QString& title) const {
    for (const auto* statement : {"UPDATE DicomNodes SET LocalAETitle=? WHERE LocalAETitle=?",
                                  "UPDATE DicomNodes SET AETitle=? WHERE AETitle=?"})
        db::execute(Globals::DbConnection(), statement, {ui::varchar(title), ui::varchar(OldAETitle_)});
    lists_.LoadNodes();
}

/// After renameTitle(): the node that is this server itself has its new title by now.
void DicomPort::renamePort(const PortRecord& port) const {
    db::execute(Globals::DbConnection(), "UPDATE DicomNodes SET Port=? WHERE AETitle=? AND Port=?",
                {ui::varchar(port.port), ui::varchar(port.aeTitle), ui::varchar(OldPort_)});
    AcceptedNodes::renumber(ui::trimmed(OldPort_), ui::trimmed(port.port));
}

void DicomPort::reload() {
    lists_.LoadPorts();
    lists_.LoadNodes();
    Globals::setConfigChanged(true);
}

void DicomPort::cmdRootDir_Click() {
    ui::guarded(this, ui::BoxStyle::Plain, [this] {
        const auto folder = ui::browseForFolder(this, u"Images dir"_s, txtRoot_->text());
        if (!folder)
            return;
        if (folder->size() > RootLimit)
            throw std::runtime_error("The path of this folder is longer than 255 characters.");
        txtRoot_->setText(*folder);
    });
}

}  // namespace tessaly::network
