#include "db/Odbc.h"

#include <array>
#include <mutex>

#include "db/StatementCanceller.h"
#include "db/dialects/Registry.h"

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

/// One at a time in the whole process: the PostgreSQL driver sets the locale as it connects, and reads the
/// name of the one before, which another thread's connecting may have freed by then.
SQLRETURN connect(SQLHDBC handle, const std::string& words) {
    static std::mutex connecting;
    const std::lock_guard lock{connecting};
    return SQLDriverConnect(handle, nullptr, odbcText(words), static_cast<SQLSMALLINT>(words.size()), nullptr,
                            0, nullptr, SQL_DRIVER_NOPROMPT);
}

}  // namespace

Session::Session(const std::string& connectString, SQLULEN cursors, Purpose purpose,
                 std::chrono::milliseconds lockWait)
    : connection_((SQLSetEnvAttr(environment_.get(), SQL_ATTR_ODBC_VERSION,
                                 reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0),
                   environment_.get())) {
    check(SQLSetConnectAttr(get(), SQL_ATTR_ODBC_CURSORS, reinterpret_cast<SQLPOINTER>(cursors), 0));
    const std::string whole = connectString + connectWords(purpose, lockWait);
    FileUse::requireFree(whole);
    expectConnection();
    check(connect(get(), whole));
    dialect_ = &findDialect();
    progress_ = dialect_->progress(whole);
    buffersResultSets_ = dialect_->buffersResultSets(purpose);
    if (dialect_->keepsFiles())
        file_ = std::make_unique<FileUse>(whole, textInfo(SQL_DATABASE_NAME));
    if (const std::string nowhere = dialect_->neverConnecting(textInfo(SQL_DRIVER_NAME)); !nowhere.empty()) {
        neverConnected_ = std::make_unique<Handle<SQL_HANDLE_DBC>>(environment_.get());
        connect(neverConnected_->get(), nowhere + connectWords(Purpose::General));
    }
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
    auto fault = dialect_ != nullptr ? dialect_->kindOf(records) : kindOfConnectFault(records);
    // A driver may report a loss in the midst of its preparations as any other failure, but knows.
    lost = lost || fault == FaultKind::LostSession || isDead();
    if (lost)
        fault = FaultKind::LostSession;
    throwError(fault, std::move(records), statement);
}

bool Session::isDead() const {
    SQLUINTEGER dead = SQL_CD_FALSE;
    SQLGetConnectAttr(get(), SQL_ATTR_CONNECTION_DEAD, &dead, sizeof dead, nullptr);
    return dead == SQL_CD_TRUE;
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

const Dialect& Session::findDialect() const {
    const SQLUINTEGER names = info(SQL_IDENTIFIER_CASE);
    return dialectOf(textInfo(SQL_DBMS_NAME), {.quote = textInfo(SQL_IDENTIFIER_QUOTE_CHAR),
                                               .folding = names == SQL_IC_LOWER   ? Naming::Folding::Lower
                                                          : names == SQL_IC_UPPER ? Naming::Folding::Upper
                                                                                  : Naming::Folding::None});
}

bool Session::walksBesideOthers() const {
    const bool forwardOnly = (info(SQL_SCROLL_OPTIONS) & SQL_SO_FORWARD_ONLY) != 0;
    const SQLUINTEGER statements = info(SQL_MAX_CONCURRENT_ACTIVITIES);  // 0: no limit
    return forwardOnly && statements != 1;
}

SQLRETURN Statement::prepare() {
    const std::string words = session_->dialect().rewritten(text_);
    const SQLRETURN result = SQLPrepare(get(), odbcText(words), static_cast<SQLINTEGER>(words.size()));
    prepared = SQL_SUCCEEDED(result);
    hasRun = false;
    return result;
}

void Statement::runDirectly() const {
    const std::string words = session_->dialect().rewritten(text_);
    check(SQLExecDirect(get(), odbcText(words), static_cast<SQLINTEGER>(words.size())));
}

void Statement::fetchAll() {
    SQLSMALLINT count = 0;
    check(SQLNumResultCols(get(), &count));
    while (count > 0 && fetch() != SQL_NO_DATA) {
    }
}

SQLRETURN Statement::fetch() {
    if (session_->buffersResultSets())
        return check(SQLFetch(get()));
    return StatementCanceller{*this}.run([this] { return SQLFetch(get()); });
}

}  // namespace tessaly::db::detail
