#include "db/Number.h"
#include "db/Odbc.h"

namespace tessaly::db::detail {

namespace {

/// The engine's first statement on a session; throws where it tells that the session is not to be used.
void openSession(const std::shared_ptr<Session>& session, std::chrono::milliseconds lockWait) {
    const std::string opening = session->engine().opening(lockWait);
    if (opening.empty())
        return;
    const auto statement = std::make_shared<Statement>(session, opening);
    statement->runDirectly();
    ResultSet row{statement};
    const bool hasRow = row.next();
    session->noteLog();
    if (!hasRow || !session->engine().isPostgres())
        return;
    if (const auto reason = refusal(row.integer("Version"), row.text("Encoding")))
        throw Error(*reason);
}

}  // namespace

SharedSession::SharedSession(std::string connectString, Connection::CursorDriver cursors,
                             std::chrono::milliseconds lockWait, bool walks)
    : connectString_(std::move(connectString) + waitWords(lockWait)),
      cursors_(cursors),
      lockWait_(lockWait),
      walks_(walks),
      session_(connect()) {}

const std::shared_ptr<Session>& SharedSession::current() {
    if (session_->lost && !session_->inTransaction)
        session_ = connect();
    return session_;
}

std::shared_ptr<Session> SharedSession::connect() const {
    std::shared_ptr<Session> session;
    if (cursors_ == Connection::CursorDriver::DriverFirst) {
        // The driver manager's cursor library spools every fetched row into a temporary file and makes a long
        // walk ten times as slow; it gets the work only where the driver cannot do without.
        session = std::make_shared<Session>(connectString_, SQL_CUR_USE_DRIVER, walks_);
        if (!session->walksBesideOthers())
            session = std::make_shared<Session>(connectString_, SQL_CUR_USE_ODBC, walks_);
    } else {
        session = std::make_shared<Session>(connectString_, static_cast<SQLULEN>(cursors_), walks_);
    }
    openSession(session, lockWait_);
    return session;
}

}  // namespace tessaly::db::detail
