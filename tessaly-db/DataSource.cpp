#include "tessaly-db/DataSource.h"

#include <odbcinst.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

namespace tessaly::tool {

namespace {

std::string entry(const std::string& section, const char* key, const char* ini) {
    std::array<char, 4096> value{};
    SQLGetPrivateProfileString(section.c_str(), key, "", value.data(), value.size(), ini);
    return value.data();
}

}  // namespace

void requireDataSource(const std::string& dsn) {
    if (attribute(dsn, "Driver").empty())
        throw std::runtime_error("ODBC knows no data source " + dsn);
}

std::string attribute(const std::string& dsn, const char* name) {
    return entry(dsn, name, "odbc.ini");
}

std::string driverLibrary(const std::string& dsn) {
    const std::string driver = attribute(dsn, "Driver");
    const std::string library = entry(driver, "Driver", "odbcinst.ini");
    return std::filesystem::path{library.empty() ? driver : library}.filename();
}

bool keepsFile(const std::string& dsn) {
    requireDataSource(dsn);
    return driverLibrary(dsn).find("sqlite") != std::string::npos;
}

std::filesystem::path databaseFile(const std::string& dsn) {
    requireDataSource(dsn);
    std::filesystem::path file = attribute(dsn, "Database");
    if (!file.is_absolute() || !file.has_filename())
        throw std::runtime_error("The data source " + dsn + " names no database file by its whole path");
    requireNameable(file);
    return file;
}

void requireNameable(const std::filesystem::path& file) {
    if (file.string().find(';') != std::string::npos)  // in a connect string it begins the next attribute
        throw std::runtime_error("A new database cannot have a semicolon in its path: " + file.string());
}

std::optional<std::string> logWithPassword(const std::string& dsn) {
    // The PostgreSQL driver's logs lie in /tmp, for everybody to read. These programs turn them off by
    // themselves; others go by the data source.
    if (!driverLibrary(dsn).starts_with("psqlodbc"))
        return {};
    for (const char* log : {"CommLog", "Debug"})
        if (std::atoi(attribute(dsn, log).c_str()) != 0)
            return "The data source " + dsn + " has " + log + "=" + attribute(dsn, log) +
                   ": its driver leaves a log in /tmp that shows the password";
    return {};
}

void connect(db::Connection& connection, const std::string& dsn, const std::string& database) {
    connection.setConnectString("DSN=" + dsn + (database.empty() ? "" : ";Database=" + database));
    connection.establish();
}

}  // namespace tessaly::tool
