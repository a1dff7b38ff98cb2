#include "tessaly-db/DataSource.h"

#include <odbcinst.h>

#include <array>
#include <stdexcept>

namespace tessaly::tool {

namespace {

/// An attribute of the data source's entry in the user's or the system's configuration; empty without one.
std::string attribute(const std::string& dsn, const char* name) {
    std::array<char, 4096> value{};
    SQLGetPrivateProfileString(dsn.c_str(), name, "", value.data(), value.size(), "odbc.ini");
    return value.data();
}

}  // namespace

void requireDataSource(const std::string& dsn) {
    if (attribute(dsn, "Driver").empty())
        throw std::runtime_error("ODBC knows no data source " + dsn);
}

std::filesystem::path databaseFile(const std::string& dsn) {
    requireDataSource(dsn);
    std::filesystem::path file = attribute(dsn, "Database");
    if (!file.is_absolute() || !file.has_filename())
        throw std::runtime_error("The data source " + dsn + " names no database file by its whole path");
    if (file.string().find(';') != std::string::npos)  // in a connect string it begins the next attribute
        throw std::runtime_error("A new database cannot have a semicolon in its path: " + file.string());
    return file;
}

void connect(db::Connection& connection, const std::string& dsn, const std::string& database) {
    connection.setConnectString("DSN=" + dsn + (database.empty() ? "" : ";Database=" + database));
    connection.establish();
}

}  // namespace tessaly::tool
