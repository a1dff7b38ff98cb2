#include "db/Compaction.h"

#include "db/Error.h"
#include "db/Query.h"
#include "db/dialects/Dialect.h"

namespace tessaly::db {

void compact(const Connection& connection, const std::vector<std::string>& tables) {
    const Dialect& dialect = connection.dialect();
    if (const std::string check = dialect.compactionCheck(tables); !check.empty()) {
        Query query{connection, check};
        ResultSet refusals = query.open();
        if (refusals.next())
            throw Error(refusals.text("Refusal"));
    }
    const auto statements = dialect.compaction(tables);
    if (statements.empty())
        throw Error(dialect.withoutCompaction());
    for (const std::string& statement : statements)
        execute(connection, statement);
}

}  // namespace tessaly::db
