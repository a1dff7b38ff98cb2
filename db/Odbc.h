#pragma once

// The ODBC handles behind this folder's classes. For db/*.cpp alone: no other folder sees an ODBC type.

#include <sql.h>
#include <sqlext.h>

#include <memory>
#include <string>

#include "db/Error.h"
#include "db/ResultSet.h"

namespace tessaly::db::detail {

/// ODBC's prototypes lack const; none of the calls made in this folder writes through it.
[[nodiscard]] inline SQLCHAR* odbcText(const std::string& text) {
    return reinterpret_cast<SQLCHAR*>(const_cast<char*>(text.data()));
}

/// Reads every diagnostic record of the handle; never empty.
[[nodiscard]] std::vector<Diagnostic> diagnostics(SQLSMALLINT kind, SQLHANDLE handle);

/// Owns one ODBC handle of the kind given.
template <SQLSMALLINT Kind>
class Handle {
  public:
    explicit Handle(SQLHANDLE parent) {
        if (!SQL_SUCCEEDED(SQLAllocHandle(Kind, parent, &handle_)))
            throw Error("The ODBC driver manager gives no handle");
    }
    ~Handle() { SQLFreeHandle(Kind, handle_); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    [[nodiscard]] SQLHANDLE get() const noexcept { return handle_; }

    /// Throws with all diagnostics unless the call succeeded; hands `result` through.
    SQLRETURN check(SQLRETURN result, const std::string& statement = {}) const {
        if (!SQL_SUCCEEDED(result) && result != SQL_NO_DATA)
            throw Error(diagnostics(Kind, handle_), statement);
        return result;
    }

  private:
    SQLHANDLE handle_ = SQL_NULL_HANDLE;
};

/// An established connection; disconnects when the last query, set or transaction on it is gone.
class Session {
  public:
    Session(const std::string& connectString, SQLULEN cursors);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] const Handle<SQL_HANDLE_DBC>& connection() const noexcept { return connection_; }

    /// True when the driver can walk a forward-only set while other statements run beside it.
    [[nodiscard]] bool walksBesideOthers() const;
    [[nodiscard]] std::string engineName() const;

    bool inTransaction = false;

  private:
    [[nodiscard]] SQLUINTEGER info(SQLUSMALLINT what) const;

    Handle<SQL_HANDLE_ENV> environment_{SQL_NULL_HANDLE};
    Handle<SQL_HANDLE_DBC> connection_;
};

/// A statement handle with the session that it needs, shared by a query and the set it opened.
class Statement {
  public:
    Statement(std::shared_ptr<Session> session, std::string text)
        : session_(std::move(session)), handle_(session_->connection().get()), text_(std::move(text)) {}

    [[nodiscard]] SQLHSTMT get() const noexcept { return handle_.get(); }
    [[nodiscard]] const Session& session() const noexcept { return *session_; }
    [[nodiscard]] const std::string& text() const noexcept { return text_; }
    SQLRETURN check(SQLRETURN result) const { return handle_.check(result, text_); }

    /// Prepares the text, whatever the handle did before; hands ODBC's answer through.
    SQLRETURN prepare() {
        const SQLRETURN result = SQLPrepare(get(), odbcText(text_), static_cast<SQLINTEGER>(text_.size()));
        prepared = SQL_SUCCEEDED(result);
        return result;
    }

    bool prepared = false;
    bool walking = false;  ///< a result set is alive on it
    std::size_t boundParams = 0;
    std::vector<ResultSet::Column> columns;  ///< of the sets that it opens, described by the first

  private:
    std::shared_ptr<Session> session_;  // declared first: it outlives the handle
    Handle<SQL_HANDLE_STMT> handle_;
    std::string text_;
};

}  // namespace tessaly::db::detail
