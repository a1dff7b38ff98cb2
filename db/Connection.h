#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "db/dialects/Purpose.h"

namespace tessaly::db {

class Dialect;

namespace detail {
class SharedSession;
}

/// One ODBC connection. Not thread-safe: it and all that runs on it belong to one thread at a time.
/// Every operation throws db::Error with the driver's description.
///
/// The engine may end a connection (a restart, a failover, an administrator). The operation that meets it
/// reports it; the next one outside a transaction connects anew by itself, queries made before included.
class Connection {
  public:
    /// Who walks the result sets; the values are those of SQL_ATTR_ODBC_CURSORS.
    enum class CursorDriver {
        IfNeeded = 0,
        DriverFirst =
            1,  ///< the driver manager's library only where the driver cannot walk them as we need it
        Driver = 2
    };

    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // What is set takes effect with the next establish().
    void setConnectString(std::string text) { connectString_ = std::move(text); }
    void setCursorDriver(CursorDriver driver) { cursorDriver_ = driver; }
    void setPurpose(Purpose purpose) { purpose_ = purpose; }

    /// How long a statement waits for what others have locked, before it fails; zero leaves that to the data
    /// source.
    void setLockWait(std::chrono::milliseconds wait) { lockWait_ = wait; }

    /// Query::setStop() for each statement that has no question of its own, also while the connection is
    /// open.
    void setStop(std::function<bool()> isUnwanted);

    /// Connects without ever prompting, and reads from the database once, so that a file that is missing,
    /// locked, unreadable or no database fails here and not at the first statement. Throws when already open.
    void establish();

    /// Disconnects; nothing happens when it is closed. Throws while a query or a result set of it is alive.
    void close();

    [[nodiscard]] bool isOpen() const noexcept { return sharedSession_ != nullptr; }

    /// The last operation met the end of the session: others to the same engine have ended, too, most likely.
    [[nodiscard]] bool hasLostSession() const noexcept;

    /// Looks a table up in the catalogue, without regard to case.
    [[nodiscard]] bool hasTable(std::string_view name) const;

    /// What is to be known of the engine (db/dialects/Dialect.h).
    [[nodiscard]] const Dialect& dialect() const;

    /// The file that the database is, whole path; empty where it is none of this machine's.
    [[nodiscard]] std::string databaseFile() const;

    /// For StreamedQuery: another connection to the same database that does nothing but walk.
    [[nodiscard]] std::unique_ptr<Connection> walker() const;
    /// The driver does not walk a set on this one without keeping its rows in memory.
    [[nodiscard]] bool needsWalker() const;

    /// For Query and Transaction. Throws when the connection is closed.
    [[nodiscard]] const std::shared_ptr<detail::SharedSession>& sharedSession() const;

  private:
    std::string connectString_;
    CursorDriver cursorDriver_ = CursorDriver::Driver;
    Purpose purpose_ = Purpose::General;
    std::chrono::milliseconds lockWait_{0};
    std::function<bool()> isUnwanted_;
    std::shared_ptr<detail::SharedSession> sharedSession_;
};

}  // namespace tessaly::db
