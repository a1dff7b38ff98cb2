#include "console/network/FTPNode.h"

#include "console/network/NodeNames.h"
#include "console/session/Globals.h"
#include "console/ui/FocusOutFilter.h"
#include "console/ui/Guard.h"
#include "console/ui/Text.h"
#include "db/Query.h"

namespace tessaly::network {

using namespace Qt::StringLiterals;

FTPNode::FTPNode(NetworkLists& lists, QWidget* parent)
    : EditorDialog({.name = u"FTPNode"_s, .caption = u"FTP Node"_s}, parent), lists_(lists) {
    auto* rows = new QFormLayout;
    body()->addLayout(rows);
    // The tag is the field's name in messages.
    const auto text = [&](const QString& label, const QString& name, const QString& tag, int limit,
                          QString FtpNodeRecord::*member) {
        QLineEdit* box = fields_.text(rows, label, name, limit, member);
        box->setProperty("tag", tag);
        return box;
    };
    name_ = text(u"Name"_s, u"txtName"_s, u"Name"_s, 16, &FtpNodeRecord::name);
    text(u"Host"_s, u"txtHost"_s, u"Host"_s, 64, &FtpNodeRecord::host);
    text(u"User"_s, u"txtUser"_s, u"User"_s, 16, &FtpNodeRecord::user);
    text(u"Password"_s, u"txtPassword"_s, u"Password"_s, 16, &FtpNodeRecord::password);
    auto* destination =
        text(u"Destination dir"_s, u"txtDestination"_s, u"Destination"_s, 128, &FtpNodeRecord::destination);
    ui::onLeave(destination, [destination] {
        if (destination->text().isEmpty())
            destination->setText(u"."_s);
    });
    fields_.choice(rows, u"Type"_s, u"cmbType"_s, {u"Quib"_s, u"Analyze"_s, u"Lorvo"_s},
                   &FtpNodeRecord::type);
    addButtons();
}

void FTPNode::Init(const QString& name) {
    fillAndShow([&] { fill(name); });
}

void FTPNode::fill(const QString& name) {
    newNode_ = name.isEmpty();
    if (newNode_) {
        fields_.show({.type = u"Quib"_s});
        return;
    }
    db::Query query{Globals::DbConnection(), "SELECT * FROM FTPNodes WHERE Name=?"};
    db::ResultSet row = query.bind(1, ui::varchar(name)).open();
    if (!row.next()) {
        // Deliberate: the dialog stays in update mode with its name unlocked, and Confirm then changes a row
        // only if the name typed exists.
        ui::messageBox(this, u"Node "_s + name + u" not found"_s, ui::BoxStyle::Critical);
        return;
    }
    name_->setReadOnly(true);
    fields_.show({.name = ui::text(row, "Name"),
                  .host = ui::text(row, "Host"),
                  .user = ui::text(row, "UserName"),
                  .password = ui::text(row, "UserPwd"),
                  .destination = ui::text(row, "Destination"),
                  .type = ui::text(row, "NodeType")});
}

bool FTPNode::FormValidate() {
    for (QLineEdit* box : findChildren<QLineEdit*>()) {
        if (!isFilled(box, box->property("tag").toString() + u" cannot be empty"_s, ui::BoxStyle::Critical))
            return false;
    }
    return nameIsFree(this, fields_.read().name, NameSpace::DicomNodes);
}

bool FTPNode::save() {
    const FtpNodeRecord node = fields_.read();
    db::execute(Globals::DbConnection(),
                newNode_ ? "Insert into FTPNodes (Host, UserName, UserPwd, Destination, NodeType, Name) "
                           "values(?,?,?,?,?,?)"
                         : "Update FTPNodes set Host=?, UserName=?, UserPwd=?, Destination=?, NodeType=? "
                           " WHERE Name=?",
                {ui::varchar(node.host), ui::varchar(node.user), ui::varchar(node.password),
                 ui::varchar(node.destination), ui::varchar(node.type), ui::varchar(node.name)});
    return true;
}

void FTPNode::reload() {
    lists_.LoadFTPNodes();
}

}  // namespace tessaly::network
