#include "db/Compaction.h"

#include "db/Odbc.h"
#include "db/Query.h"

namespace tessaly::db {

void compact(const Connection& connection, const std::vector<std::string>& tables) {
    const detail::Engine engine = connection.sharedSession()->current()->engine();
    if (const std::string check = engine.compactionCheck(tables); !check.empty()) {
        Query query{connection, check};
        ResultSet refusals = query.open();
        if (refusals.next())
            throw Error(refusals.text("Refusal"));
    }
    const auto statements = engine.compaction(tables);
    if (statements.empty())
        throw Error("There is no compaction for databases of " + engine.name);
    for (const std::string& statement : statements)
        execute(connection, statement);
}

}  // namespace tessaly::db
