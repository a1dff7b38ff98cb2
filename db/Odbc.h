#pragma once

// The ODBC handles behind this folder's classes. For db/*.cpp alone: no other folder sees an ODBC type.

#include <sql.h>
#include <sqlext.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "db/Connection.h"
#include "db/Error.h"
#include "db/FileUse.h"
#include "db/ResultSet.h"
#include "db/dialects/Dialect.h"

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

  private:
    SQLHANDLE handle_ = SQL_NULL_HANDLE;
};

/// An established connection; disconnects when the last query, set or transaction on it is gone.
class Session {
  public:
    /// `connectString` without the words of the dialects, which are added.
    Session(const std::string& connectString, SQLULEN cursors, Purpose purpose,
            std::chrono::milliseconds lockWait);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] SQLHDBC get() const noexcept { return connection_.get(); }
    [[nodiscard]] const Dialect& dialect() const noexcept { return *dialect_; }
    /// Null where the engine does not work in this process.
    [[nodiscard]] Progress* progress() const noexcept { return progress_.get(); }
    /// The driver has all rows of a set when its statement has run.
    [[nodiscard]] bool buffersResultSets() const noexcept { return buffersResultSets_; }

    /// True when the driver can walk a forward-only set while other statements run beside it.
    [[nodiscard]] bool walksBesideOthers() const;

    /// The file that it works on; nothing where the engine keeps none on this machine.
    [[nodiscard]] std::optional<DatabaseFile> file() const { return file_ ? file_->file() : std::nullopt; }
    /// When it has read from the database for the first time.
    void noteLog() {
        if (file_)
            file_->noteLog();
    }

    /// Every call on the connection and its statements goes through here. Throws unless it succeeded, and
    /// keeps in mind what the failure means for the session and its transaction.
    SQLRETURN check(SQLRETURN result, SQLSMALLINT kind, SQLHANDLE handle, const std::string& statement = {});
    SQLRETURN check(SQLRETURN result) { return check(result, SQL_HANDLE_DBC, get()); }

    bool inTransaction = false;
    bool failed = false;  ///< something has failed since the transaction began
    /// One of the transaction's statements was ended. The engine may have rolled back by itself, and would
    /// keep what follows.
    bool undone = false;
    bool lost = false;  ///< the engine has ended the session, or cannot be reached any more

  private:
    [[nodiscard]] SQLUINTEGER info(SQLUSMALLINT what) const;
    [[nodiscard]] std::string textInfo(SQLUSMALLINT what) const;
    [[nodiscard]] const Dialect& findDialect() const;
    [[nodiscard]] bool isDead() const;

    Handle<SQL_HANDLE_ENV> environment_{SQL_NULL_HANDLE};
    Handle<SQL_HANDLE_DBC> connection_;
    std::unique_ptr<Handle<SQL_HANDLE_DBC>> neverConnected_;
    const Dialect* dialect_ = nullptr;  // until the engine is known
    std::unique_ptr<Progress> progress_;
    bool buffersResultSets_ = false;
    std::unique_ptr<FileUse> file_;
};

/// What a connection and the queries on it share: the session, and how to get another one.
class SharedSession {
  public:
    /// Connects; `cursors` is one of Connection::CursorDriver.
    SharedSession(std::string connectString, Connection::CursorDriver cursors,
                  std::chrono::milliseconds lockWait, Purpose purpose, std::function<bool()> isUnwanted);

    /// The session to run the next statement on. One that was lost is replaced first, but not inside a
    /// transaction: that one has failed, and its statements with it.
    [[nodiscard]] const std::shared_ptr<Session>& current();
    [[nodiscard]] Purpose purpose() const noexcept { return purpose_; }
    [[nodiscard]] const std::function<bool()>& isUnwanted() const noexcept { return isUnwanted_; }
    /// For the statements that begin from now on.
    void setStop(std::function<bool()> isUnwanted) { isUnwanted_ = std::move(isUnwanted); }
    [[nodiscard]] bool isLost() const noexcept { return session_->lost; }
    [[nodiscard]] std::optional<DatabaseFile> file() const { return session_->file(); }
    /// A statement or a transaction is alive on the session.
    [[nodiscard]] bool isInUse() const noexcept { return session_.use_count() > 1; }

  private:
    [[nodiscard]] std::shared_ptr<Session> connect() const;

    std::string connectString_;
    Connection::CursorDriver cursors_;
    std::chrono::milliseconds lockWait_;
    Purpose purpose_;
    std::function<bool()> isUnwanted_;
    std::shared_ptr<Session> session_;
};

/// A statement handle with the session that it needs, shared by a query and the set it opened.
class Statement {
  public:
    Statement(std::shared_ptr<Session> session, std::string text)
        : session_(std::move(session)), handle_(session_->get()), text_(std::move(text)) {}

    [[nodiscard]] SQLHSTMT get() const noexcept { return handle_.get(); }
    [[nodiscard]] const std::shared_ptr<Session>& session() const noexcept { return session_; }
    /// As it was given, not as the engine reads it.
    [[nodiscard]] const std::string& text() const noexcept { return text_; }
    SQLRETURN check(SQLRETURN result) const { return session_->check(result, SQL_HANDLE_STMT, get(), text_); }

    /// Prepares the text in the engine's words, whatever the handle did before; hands ODBC's answer through.
    SQLRETURN prepare();
    /// Runs the text at once, in the engine's words.
    void runDirectly() const;
    /// A statement that returns rows may do its work only while they are fetched. Nothing for one that
    /// returns none.
    void fetchAll();
    /// SQLFetch, which may be ended.
    SQLRETURN fetch();

    bool prepared = false;
    bool hasRun = false;  ///< successfully, since it was prepared
    std::chrono::seconds timeout{0};
    // For StatementCanceller; of one run, its rows included.
    std::function<bool()> isUnwanted;
    std::optional<std::chrono::steady_clock::time_point> deadline;
    std::chrono::steady_clock::time_point nextQuestion;
    bool walking = false;  ///< a result set is alive on it
    std::size_t boundParams = 0;
    std::vector<ResultSet::Column> columns;  ///< of the sets that it opens, described by the first

  private:
    std::shared_ptr<Session> session_;  // declared first: it outlives the handle
    Handle<SQL_HANDLE_STMT> handle_;
    std::string text_;
};

}  // namespace tessaly::db::detail
