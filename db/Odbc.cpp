#include "db/Odbc.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>

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

namespace {

/// PostgreSQL's own library waits without end for a server that lets itself be called and then says nothing,
/// unless it is told otherwise. Only here can it be told without a contradiction to what the data source may
/// say itself, or the environment of who started the program; and only before there are threads.
[[maybe_unused]] const int boundedConnecting = setenv("PGCONNECT_TIMEOUT", "10", 0);  // seconds an address

/// One at a time in the whole process: the PostgreSQL driver sets the locale as it connects, and reads the
/// name of the one before, which another thread's connecting may have freed by then.
SQLRETURN connect(SQLHDBC handle, const std::string& words) {
    static std::mutex connecting;
    const std::lock_guard lock{connecting};
    return SQLDriverConnect(handle, nullptr, odbcText(words), static_cast<SQLSMALLINT>(words.size()), nullptr,
                            0, nullptr, SQL_DRIVER_NOPROMPT);
}

}  // namespace

Session::Session(const std::string& connectString, SQLULEN cursors, bool walks)
    : connection_((SQLSetEnvAttr(environment_.get(), SQL_ATTR_ODBC_VERSION,
                                 reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0),
                   environment_.get())) {
    check(SQLSetConnectAttr(get(), SQL_ATTR_ODBC_CURSORS, reinterpret_cast<SQLPOINTER>(cursors), 0));
    const std::string whole = connectString + connectWords(walks);
    FileUse::requireFree(whole);
    check(connect(get(), whole));
    engine_ = describeEngine();
    if (engine_.isSqlite())
        file_ = std::make_unique<FileUse>(whole, textInfo(SQL_DATABASE_NAME));
    keepDriverQuiet();
}

Session::~Session() {
    if (inTransaction)
        SQLEndTran(SQL_HANDLE_DBC, get(), SQL_ROLLBACK);
    SQLDisconnect(get());
}

SQLRETURN Session::check(SQLRETURN result, SQLSMALLINT kind, SQLHANDLE handle, const std::string& statement) {
    if (SQL_SUCCEEDED(result) || result == SQL_NO_DATA)
        return result;
    auto records = diagnostics(kind, handle);
    failed = true;
    // The PostgreSQL driver reports a loss in the midst of its preparations as any other failure, but knows.
    lost = lost || isDead() || std::any_of(records.begin(), records.end(), isLostSession);
    throw Error(std::move(records), statement, lost);
}

bool Session::isDead() const {
    SQLUINTEGER dead = SQL_CD_FALSE;
    SQLGetConnectAttr(get(), SQL_ATTR_CONNECTION_DEAD, &dead, sizeof dead, nullptr);
    return dead == SQL_CD_TRUE;
}

/// The PostgreSQL driver turns its log on where the system's configuration of drivers says so, and Debian's
/// does. A connection's own word for "off" counts until the driver has disconnected its last one: then, with
/// its very last message, it makes a file for the log that everybody can read. A connection that never comes
/// about is not counted out again; one beside each session keeps the log off to the end.
void Session::keepDriverQuiet() {
    const std::string driver = textInfo(SQL_DRIVER_NAME);
    if (!driver.starts_with("psqlodbc"))
        return;
    quiet_ = std::make_unique<Handle<SQL_HANDLE_DBC>>(environment_.get());
    // Its address is no folder: nobody is called.
    const std::string nowhere =
        "Driver=" + driver + ";Servername=/dev/null;Port=1;Database=none;UID=none" + connectWords(false);
    connect(quiet_->get(), nowhere);
}

SQLUINTEGER Session::info(SQLUSMALLINT what) const {
    SQLUINTEGER value = 0;  // wide enough for the 16-bit answers as well: they fill the low half
    SQLGetInfo(get(), what, &value, sizeof value, nullptr);
    return value;
}

std::string Session::textInfo(SQLUSMALLINT what) const {
    std::array<char, 4096> text{};  // a path may be as long
    SQLSMALLINT length = 0;
    const SQLRETURN result = SQLGetInfo(get(), what, text.data(), text.size(), &length);
    return SQL_SUCCEEDED(result) ? text.data() : std::string{};
}

Engine Session::describeEngine() const {
    const SQLUINTEGER names = info(SQL_IDENTIFIER_CASE);
    return {.name = textInfo(SQL_DBMS_NAME),
            .quote = textInfo(SQL_IDENTIFIER_QUOTE_CHAR),
            .folding = names == SQL_IC_LOWER   ? Engine::Folding::Lower
                       : names == SQL_IC_UPPER ? Engine::Folding::Upper
                                               : Engine::Folding::None};
}

bool Session::walksBesideOthers() const {
    const bool forwardOnly = (info(SQL_SCROLL_OPTIONS) & SQL_SO_FORWARD_ONLY) != 0;
    const SQLUINTEGER statements = info(SQL_MAX_CONCURRENT_ACTIVITIES);  // 0: no limit
    return forwardOnly && statements != 1;
}

SQLRETURN Statement::prepare() {
    const std::string words = session_->engine().rewritten(text_);
    const SQLRETURN result = SQLPrepare(get(), odbcText(words), static_cast<SQLINTEGER>(words.size()));
    prepared = SQL_SUCCEEDED(result);
    hasRun = false;
    return result;
}

void Statement::runDirectly() const {
    const std::string words = session_->engine().rewritten(text_);
    check(SQLExecDirect(get(), odbcText(words), static_cast<SQLINTEGER>(words.size())));
}

}  // namespace tessaly::db::detail
