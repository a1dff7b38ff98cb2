#pragma once

#include <filesystem>
#include <string>

#include "db/Connection.h"

namespace tessaly::tool {

/// Throws std::runtime_error when ODBC knows no data source of that name.
void requireDataSource(const std::string& dsn);

/// The database file that the data source's configuration names, whether it exists or not. Throws
/// std::runtime_error when there is no such data source, or its entry names no file that can be made here.
[[nodiscard]] std::filesystem::path databaseFile(const std::string& dsn);

/// Connects, to another database than the data source's own where one is given. Throws db::Error.
void connect(db::Connection& connection, const std::string& dsn, const std::string& database = {});

}  // namespace tessaly::tool
