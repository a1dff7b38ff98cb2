#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "db/Connection.h"
#include "db/dialects/Dialect.h"

namespace tessaly::tool {

/// Throws std::runtime_error when ODBC knows no data source of that name.
void requireDataSource(const std::string& dsn);

/// An attribute of the data source's entry in the user's or the system's configuration; empty without one.
[[nodiscard]] std::string attribute(const std::string& dsn, const char* name);

/// The dialect of the data source's engine, by its driver. Throws std::runtime_error when there is no such
/// data source.
[[nodiscard]] const db::Dialect& dialectOf(const std::string& dsn);
/// For the dialect's questions.
[[nodiscard]] db::Dialect::Attributes attributesOf(const std::string& dsn);

/// True where the database is a file that this program can make; otherwise it is a server's. Throws
/// std::runtime_error when there is no such data source.
[[nodiscard]] bool keepsFile(const std::string& dsn);

/// The database file that the data source's configuration names, whether it exists or not. Throws
/// std::runtime_error when there is no such data source, or its entry names no file that can be made here.
[[nodiscard]] std::filesystem::path databaseFile(const std::string& dsn);

/// Throws std::runtime_error where a new database's path cannot be said in a connect string.
void requireNameable(const std::filesystem::path& file);

/// A sentence when other programs on this data source leave a log that shows its password.
[[nodiscard]] std::optional<std::string> logWithPassword(const std::string& dsn);

/// Connects, to another database than the data source's own where one is given. Throws db::Error.
void connect(db::Connection& connection, const std::string& dsn, const std::string& database = {});

}  // namespace tessaly::tool
