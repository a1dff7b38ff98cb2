#pragma once

#include <QStringList>
#include <vector>

#include "console/ui/ReportList.h"
#include "db/Query.h"

// The lists that show nodes by name and AE title.

namespace tessaly::network {

[[nodiscard]] std::vector<ui::ReportList::Column> nodeColumns();

/// The cells of every row, from the columns Name and AETitle. Read to the end before any of it is shown, so
/// that a failure leaves the list alone. Throws db::Error.
[[nodiscard]] QList<QStringList> readNodes(db::Query& query);

void showNodes(ui::ReportList& list, const QList<QStringList>& nodes);

}  // namespace tessaly::network
