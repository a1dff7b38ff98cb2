#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace tessaly::db {

namespace detail {
class Session;
}

/// One ODBC connection. Not thread-safe: it and all that runs on it belong to one thread at a time.
/// Every operation throws db::Error with the driver's description.
class Connection {
  public:
    /// Who walks the result sets; the values are those of SQL_ATTR_ODBC_CURSORS.
    enum class CursorDriver { IfNeeded = 0, Odbc = 1, Driver = 2 };

    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Takes effect with the next establish().
    void setConnectString(std::string text) { connectString_ = std::move(text); }
    void setCursorDriver(CursorDriver driver) { cursorDriver_ = driver; }

    /// Connects without ever prompting, and reads from the database once, so that a file that is missing, locked,
    /// unreadable or no database fails here and not at the first statement. Throws when already open.
    void establish();

    /// Disconnects; nothing happens when it is closed. Throws while a query or a result set of it is alive.
    void close();

    [[nodiscard]] bool isOpen() const noexcept { return session_ != nullptr; }

    /// Looks a table up in the catalogue, without regard to case.
    [[nodiscard]] bool hasTable(std::string_view name) const;

    /// The engine's name as the driver gives it, for example "SQLite".
    [[nodiscard]] std::string engineName() const;

    /// For Query and Transaction. Throws when the connection is closed.
    [[nodiscard]] const std::shared_ptr<detail::Session>& session() const;

  private:
    std::string connectString_;
    CursorDriver cursorDriver_ = CursorDriver::Driver;
    std::shared_ptr<detail::Session> session_;
};

}  // namespace tessaly::db
