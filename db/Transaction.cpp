#include "db/Transaction.h"

#include "db/Odbc.h"

namespace tessaly::db {

namespace {

SQLRETURN setAutoCommit(const detail::Session& session, SQLULEN mode) {
    return SQLSetConnectAttr(session.get(), SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(mode), 0);
}

}  // namespace

Transaction::Transaction(const Connection& connection) : session_(connection.sharedSession()->current()) {
    if (session_->inTransaction)
        throw Error("A transaction is already open");
    session_->check(setAutoCommit(*session_, SQL_AUTOCOMMIT_OFF));
    session_->inTransaction = true;
    session_->failed = false;
    session_->undone = false;
}

Transaction::~Transaction() {
    rollBack();
}

void Transaction::commit() {
    if (!open_)
        throw Error("The transaction has ended");
    if (session_->failed)
        throw Error("The transaction cannot be committed: one of its statements failed");
    try {
        session_->check(SQLEndTran(SQL_HANDLE_DBC, session_->get(), SQL_COMMIT));
    } catch (const LostSession& fault) {
        throw OutcomeUnknown{fault};
    }
    open_ = false;
    session_->inTransaction = false;
    // What is committed stays so. A connection that cannot be set back is replaced by the next operation.
    if (!SQL_SUCCEEDED(setAutoCommit(*session_, SQL_AUTOCOMMIT_ON)))
        session_->lost = true;
}

void Transaction::rollBack() noexcept {
    if (!open_)
        return;
    open_ = false;
    session_->inTransaction = false;
    // Where the engine has rolled back by itself already, a driver may still believe in the transaction, and
    // would begin no other. A session that cannot be set back is replaced by the next operation.
    const bool isRolledBack = SQL_SUCCEEDED(SQLEndTran(SQL_HANDLE_DBC, session_->get(), SQL_ROLLBACK));
    if (!SQL_SUCCEEDED(setAutoCommit(*session_, SQL_AUTOCOMMIT_ON)) || !isRolledBack)
        session_->lost = true;
}

}  // namespace tessaly::db
