#include "db/Odbc.h"

namespace tessaly::db::detail {

namespace {

/// The engine's first statements on a session; throws where they tell that it is not to be used.
void openSession(const std::shared_ptr<Session>& session, std::chrono::milliseconds lockWait,
                 Purpose purpose) {
    const Dialect& dialect = session->dialect();
    if (const std::string opening = dialect.opening(lockWait); !opening.empty()) {
        const auto statement = std::make_shared<Statement>(session, opening);
        statement->runDirectly();
        ResultSet row{statement};
        const bool hasRow = row.next();
        session->noteLog();
        const Dialect::Row columns = [&row](const char* column) { return row.text(column); };
        if (const auto reason = hasRow ? dialect.refusal(columns) : std::nullopt)
            throw Error(*reason);
    }
    for (const std::string& setting : dialect.settings(purpose)) {
        Statement statement{session, setting};
        statement.runDirectly();
        statement.fetchAll();
    }
}

}  // namespace

SharedSession::SharedSession(std::string connectString, Connection::CursorDriver cursors,
                             std::chrono::milliseconds lockWait, Purpose purpose,
                             std::function<bool()> isUnwanted)
    : connectString_(std::move(connectString)),
      cursors_(cursors),
      lockWait_(lockWait),
      purpose_(purpose),
      isUnwanted_(std::move(isUnwanted)),
      session_(connect()) {}

const std::shared_ptr<Session>& SharedSession::current() {
    if (session_->lost && !session_->inTransaction)
        session_ = connect();
    return session_;
}

std::shared_ptr<Session> SharedSession::connect() const {
    const auto open = [this](SQLULEN cursors) {
        return std::make_shared<Session>(connectString_, cursors, purpose_, lockWait_);
    };
    std::shared_ptr<Session> session;
    if (cursors_ == Connection::CursorDriver::DriverFirst) {
        // The driver manager's cursor library spools every fetched row into a temporary file and makes a long
        // walk ten times as slow; it gets the work only where the driver cannot do without.
        session = open(SQL_CUR_USE_DRIVER);
        if (!session->walksBesideOthers())
            session = open(SQL_CUR_USE_ODBC);
    } else {
        session = open(static_cast<SQLULEN>(cursors_));
    }
    openSession(session, lockWait_, purpose_);
    return session;
}

}  // namespace tessaly::db::detail
