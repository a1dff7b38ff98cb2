#include "tessaly-db/Compact.h"

#include <vector>

#include "db/Compaction.h"
#include "schema/Catalogue.h"
#include "schema/Definitions.h"
#include "tessaly-db/DataSource.h"

namespace tessaly::tool {

void compact(const std::string& dsn) {
    requireDataSource(dsn);
    db::Connection connection;
    connect(connection, dsn);
    const auto actual = schema::readCatalogue(connection);
    std::vector<std::string> tables;
    for (const auto& table : schema::definitions(schema::engine(connection)).tables)
        if (actual.contains(table.name))
            tables.push_back(table.name);
    db::compact(connection, tables);
}

}  // namespace tessaly::tool
