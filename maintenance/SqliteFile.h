#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

struct sqlite3;

namespace tessaly::maintenance {

/// How long this process waits for another that works on a database's file, as a server that looks for jobs:
/// as long as for any other lock.
constexpr std::chrono::seconds LockWait{5};
/// Between two attempts to have the file alone.
constexpr std::chrono::milliseconds LockInterval{20};

/// A database file in the hands of the engine's own library, for what no data source offers. Throws
/// std::runtime_error with the engine's description.
class SqliteFile {
  public:
    /// Opens an existing file for reading and writing. Whether it is a database shows with the first run().
    /// `keepAlive` is called now and then while the engine works, every few thousand steps of a statement; it
    /// must outlive the object, must not throw, and must not come back to it.
    SqliteFile(const std::filesystem::path& path, const std::function<void()>& keepAlive);
    ~SqliteFile();
    SqliteFile(const SqliteFile&) = delete;
    SqliteFile& operator=(const SqliteFile&) = delete;

    /// Runs one statement to its end, with `parameter` for its `?` if it has one. Gives the first column of
    /// the first row, empty without rows.
    std::string run(
        const std::string& sql,
        const std::string& parameter = {});  // NOLINT(modernize-use-nodiscard): most are run for what they do

    /// Replaces the whole content by that of another database, in one transaction. `keepAlive` as above.
    void takeOver(SqliteFile& other, const std::function<void()>& keepAlive);

  private:
    [[noreturn]] void fail() const;

    sqlite3* handle_ = nullptr;
};

/// Changes the journal mode of a database that nobody has open, and whose write-ahead log is gone, from that
/// log to a rollback journal: what "PRAGMA journal_mode=delete" writes. `file` is open for writing. Throws
/// std::system_error.
void markWithoutLog(int file);

}  // namespace tessaly::maintenance
