#include "console/network/NodeTitles.h"

#include "console/ui/Text.h"

namespace tessaly::network {

using namespace Qt::StringLiterals;

std::vector<ui::ReportList::Column> nodeColumns() {
    return {{.title = u"Name"_s, .inches = 2}, {.title = u"AETitle"_s, .inches = 2}};
}

QList<QStringList> readNodes(db::Query& query) {
    QList<QStringList> nodes;
    db::ResultSet rows = query.open();
    while (rows.next())
        nodes << QStringList{ui::text(rows, "Name"), ui::text(rows, "AETitle")};
    return nodes;
}

void showNodes(ui::ReportList& list, const QList<QStringList>& nodes) {
    ui::ReportList::Load load{list};
    for (const QStringList& node : nodes)
        load.add(node);
}

}  // namespace tessaly::network
