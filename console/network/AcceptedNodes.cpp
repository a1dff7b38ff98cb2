#include "console/network/AcceptedNodes.h"

#include "console/session/Globals.h"
#include "console/ui/Text.h"

namespace tessaly::network {

AcceptedNodes::AcceptedNodes()
    : rewrite_(Globals::DbConnection(), "UPDATE PortRemoteNodes SET Port=?, Name=? WHERE Port=? AND Name=?"),
      insert_(Globals::DbConnection(), "INSERT INTO PortRemoteNodes (Port, Name) VALUES (?,?)") {}

void AcceptedNodes::accept(const QString& port, const QString& node) {
    // A row that is left over is written anew and not just kept: the database compares without case, the rows
    // show how the port and the node are written now.
    const db::Param number = ui::varchar(port);
    const db::Param name = ui::varchar(node);
    if (rewrite_.bindAll({number, name, number, name}).execute() > 0)
        return;
    insert_.bindAll({number, name}).execute();
}

void AcceptedNodes::acceptOnEveryPort(const QString& node) {
    db::Query ports{Globals::DbConnection(), "SELECT Port FROM Port"};
    db::ResultSet rows = ports.open();
    while (rows.next())
        accept(ui::text(rows, "Port"), node);
}

void AcceptedNodes::renumber(const QString& from, const QString& to) {
    // Whether the two are one number to the database is for its columns to compare: the rows of a port that
    // is only written in other letters would else go before they are rewritten.
    db::execute(Globals::DbConnection(),
                "DELETE FROM PortRemoteNodes WHERE Port=? AND EXISTS "
                "(SELECT * FROM PortRemoteNodes Moved WHERE Moved.Port=? AND "
                "Moved.Port<>PortRemoteNodes.Port AND Moved.Name=PortRemoteNodes.Name)",
                {ui::varchar(to), ui::varchar(from)});
    db::execute(Globals::DbConnection(), "Update PortRemoteNodes Set Port=? where Port=?",
                {ui::varchar(to), ui::varchar(from)});
}

void AcceptedNodes::acceptEveryNode(const QString& port) {
    db::Query nodes{Globals::DbConnection(), "SELECT Name FROM DicomNodes"};
    db::ResultSet rows = nodes.open();
    while (rows.next())
        accept(port, ui::text(rows, "Name"));
}

}  // namespace tessaly::network
