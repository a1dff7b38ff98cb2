#include "db/Connection.h"

#include <array>

#include "db/Odbc.h"
#include "db/Text.h"

namespace tessaly::db {

namespace {

// The SQLite driver makes an empty database of a path that does not exist, unless it is told not to; other
// drivers pass over the word. A mistyped path in the data source must fail instead.
constexpr const char* NeverCreate = ";NoCreat=1";

/// The SQLite driver connects to anything and looks at the file with the first statement; a file that is no
/// database, or locked, or unreadable is to fail the connecting already.
void readOnce(const std::shared_ptr<detail::Session>& session) {
    if (session->engineName() != "SQLite")
        return;
    const detail::Statement statement{session, "SELECT COUNT(*) FROM sqlite_master"};
    statement.check(SQLExecDirect(statement.get(), detail::odbcText(statement.text()), SQL_NTS));
    statement.check(SQLFetch(statement.get()));
}

bool findTable(const std::shared_ptr<detail::Session>& session, std::string_view wanted) {
    const detail::Statement tables{session, "the catalogue of tables"};
    tables.check(SQLTables(tables.get(), nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0));
    constexpr SQLUSMALLINT NameColumn = 3;
    std::array<char, 256> name{};
    SQLLEN length = 0;
    while (tables.check(SQLFetch(tables.get())) != SQL_NO_DATA) {
        tables.check(SQLGetData(tables.get(), NameColumn, SQL_C_CHAR, name.data(), name.size(), &length));
        if (length != SQL_NULL_DATA && detail::sameName(name.data(), wanted))
            return true;
    }
    return false;
}

}  // namespace

Connection::Connection() = default;
Connection::~Connection() = default;

void Connection::establish() {
    if (session_)
        throw Error("The connection is already open");
    const std::string connectString = connectString_ + NeverCreate;
    std::shared_ptr<detail::Session> session;
    if (cursorDriver_ == CursorDriver::Odbc) {
        // The driver manager's cursor library spools every fetched row into a temporary file and makes a long
        // walk ten times as slow; it gets the work only where the driver cannot do without.
        session = std::make_shared<detail::Session>(connectString, SQL_CUR_USE_DRIVER);
        if (!session->walksBesideOthers())
            session = std::make_shared<detail::Session>(connectString, SQL_CUR_USE_ODBC);
    } else {
        session = std::make_shared<detail::Session>(connectString, static_cast<SQLULEN>(cursorDriver_));
    }
    readOnce(session);
    session_ = std::move(session);
}

void Connection::close() {
    if (session_.use_count() > 1)
        throw Error("A statement of the connection is still in use");
    session_.reset();
}

bool Connection::hasTable(std::string_view name) const {
    return findTable(session(), name);
}

std::string Connection::engineName() const {
    return session()->engineName();
}

const std::shared_ptr<detail::Session>& Connection::session() const {
    if (!session_)
        throw Error("The connection to the database is closed");
    return session_;
}

}  // namespace tessaly::db
