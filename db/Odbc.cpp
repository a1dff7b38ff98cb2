#include "db/Odbc.h"

#include <array>

namespace tessaly::db::detail {

std::vector<Diagnostic> diagnostics(SQLSMALLINT kind, SQLHANDLE handle) {
    std::vector<Diagnostic> records;
    std::array<SQLCHAR, 6> state{};
    std::string message(SQL_MAX_MESSAGE_LENGTH, '\0');
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    for (SQLSMALLINT number = 1;; ++number) {
        const SQLRETURN result = SQLGetDiagRec(kind, handle, number, state.data(), &native,
                                               reinterpret_cast<SQLCHAR*>(message.data()),
                                               static_cast<SQLSMALLINT>(message.size()), &length);
        if (!SQL_SUCCEEDED(result))
            break;
        if (length >= static_cast<SQLSMALLINT>(message.size())) {
            message.resize(static_cast<std::size_t>(length) + 1);
            --number;  // read the same record again, whole
            continue;
        }
        records.push_back({reinterpret_cast<const char*>(state.data()), native,
                           message.substr(0, static_cast<std::size_t>(length))});
    }
    if (records.empty())
        records.push_back({"HY000", 0, "The ODBC driver failed and gave no reason"});
    return records;
}

Session::Session(const std::string& connectString, SQLULEN cursors)
    : connection_((SQLSetEnvAttr(environment_.get(), SQL_ATTR_ODBC_VERSION,
                                 reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0),
                   environment_.get())) {
    connection_.check(SQLSetConnectAttr(connection_.get(), SQL_ATTR_ODBC_CURSORS,
                                        reinterpret_cast<SQLPOINTER>(cursors), 0));
    connection_.check(SQLDriverConnect(connection_.get(), nullptr, odbcText(connectString),
                                       static_cast<SQLSMALLINT>(connectString.size()), nullptr, 0, nullptr,
                                       SQL_DRIVER_NOPROMPT));
}

Session::~Session() {
    if (inTransaction)
        SQLEndTran(SQL_HANDLE_DBC, connection_.get(), SQL_ROLLBACK);
    SQLDisconnect(connection_.get());
}

SQLUINTEGER Session::info(SQLUSMALLINT what) const {
    SQLUINTEGER value = 0;  // wide enough for the 16-bit answers as well: they fill the low half
    SQLGetInfo(connection_.get(), what, &value, sizeof value, nullptr);
    return value;
}

bool Session::walksBesideOthers() const {
    const bool forwardOnly = (info(SQL_SCROLL_OPTIONS) & SQL_SO_FORWARD_ONLY) != 0;
    const SQLUINTEGER statements = info(SQL_MAX_CONCURRENT_ACTIVITIES);  // 0: no limit
    return forwardOnly && statements != 1;
}

std::string Session::engineName() const {
    std::array<char, 128> name{};
    SQLSMALLINT length = 0;
    connection_.check(SQLGetInfo(connection_.get(), SQL_DBMS_NAME, name.data(), name.size(), &length));
    return name.data();
}

}  // namespace tessaly::db::detail
