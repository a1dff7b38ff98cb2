#include "console/network/AcceptedNodes.h"

#include "console/session/Globals.h"
#include "console/ui/Text.h"

namespace tessaly::network {

AcceptedNodes::AcceptedNodes()
    : insert_(Globals::DbConnection(), "INSERT INTO PortRemoteNodes (Port, Name) VALUES (?,?)") {}

void AcceptedNodes::accept(const QString& port, const QString& node) {
    insert_.bindAll({ui::varchar(port), ui::varchar(node)}).execute();
}

void AcceptedNodes::acceptOnEveryPort(const QString& node) {
    db::Query ports{Globals::DbConnection(), "SELECT Port FROM Port"};
    db::ResultSet rows = ports.open();
    while (rows.next())
        accept(ui::text(rows, "Port"), node);
}

void AcceptedNodes::dropOfVanishedPort(const QString& port) {
    db::execute(Globals::DbConnection(),
                "DELETE FROM PortRemoteNodes WHERE Port=? AND NOT EXISTS "
                "(SELECT * FROM Port WHERE Port.Port=PortRemoteNodes.Port)",
                {ui::varchar(port)});
}

void AcceptedNodes::dropOfVanishedNode(const QString& node) {
    db::execute(Globals::DbConnection(),
                "DELETE FROM PortRemoteNodes WHERE Name=? AND NOT EXISTS "
                "(SELECT * FROM DicomNodes WHERE DicomNodes.Name=PortRemoteNodes.Name)",
                {ui::varchar(node)});
}

void AcceptedNodes::acceptEveryNode(const QString& port) {
    db::Query nodes{Globals::DbConnection(), "SELECT Name FROM DicomNodes"};
    db::ResultSet rows = nodes.open();
    while (rows.next())
        accept(port, ui::text(rows, "Name"));
}

}  // namespace tessaly::network
