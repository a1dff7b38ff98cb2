#include "tessaly-db/WalkedTransaction.h"

#include "db/Query.h"
#include "db/dialects/Dialect.h"

namespace tessaly::tool {

WalkedTransaction::WalkedTransaction(const db::Connection& connection) : connection_(connection) {
    if (!connection.dialect().buffersInTransactions()) {
        own_.emplace(connection);
        return;
    }
    db::execute(connection, "BEGIN");
    open_ = true;
}

WalkedTransaction::~WalkedTransaction() {
    if (!open_)
        return;
    try {
        db::execute(connection_, "ROLLBACK");
    } catch (const db::Error&) {  // the engine has rolled back by itself, or will at the end of the session
    }
}

void WalkedTransaction::commit() {
    if (own_) {
        own_->commit();
        return;
    }
    db::execute(connection_, "COMMIT");
    open_ = false;
}

}  // namespace tessaly::tool
