#include "db/Connection.h"

#include "db/Odbc.h"
#include "db/Text.h"

namespace tessaly::db {

namespace {

// The SQLite driver makes an empty database of a path that does not exist, unless it is told not to; other
// drivers pass over the word. A mistyped path in the data source must fail instead.
constexpr const char* NeverCreate = ";NoCreat=1";

/// Walks the catalogue's tables until `visit` returns true; false at its end.
template <class Visit>
bool findTable(const std::shared_ptr<detail::Session>& session, Visit visit) {
    const detail::Statement tables{session, "the catalogue of tables"};
    tables.check(SQLTables(tables.get(), nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0));
    constexpr SQLUSMALLINT NameColumn = 3;
    char name[256];
    SQLLEN length = 0;
    while (tables.check(SQLFetch(tables.get())) != SQL_NO_DATA) {
        tables.check(SQLGetData(tables.get(), NameColumn, SQL_C_CHAR, name, sizeof name, &length));
        if (length != SQL_NULL_DATA && visit(std::string_view{name}))
            return true;
    }
    return false;
}

/// Fails where the file cannot be read as a database. The SQLite driver opens whatever it is given, and its
/// list of tables is then merely empty; asked for a table's columns it has to say what is wrong.
void readCatalogue(const std::shared_ptr<detail::Session>& session) {
    const std::string anyTable = "Users";
    const detail::Statement columns{session, "the catalogue of columns"};
    columns.check(
        SQLColumns(columns.get(), nullptr, 0, nullptr, 0, detail::odbcText(anyTable), SQL_NTS, nullptr, 0));
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
    readCatalogue(session);
    session_ = std::move(session);
}

void Connection::close() {
    if (session_.use_count() > 1)
        throw Error("A statement of the connection is still in use");
    session_.reset();
}

bool Connection::hasTable(std::string_view name) const {
    return findTable(session(), [name](std::string_view table) { return detail::sameName(table, name); });
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
