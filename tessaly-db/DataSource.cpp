#include "tessaly-db/DataSource.h"

#include <odbcinst.h>

#include <array>
#include <stdexcept>

#include "db/dialects/Registry.h"
#include "tessaly-db/InterruptGuard.h"

namespace tessaly::tool {

namespace {

std::string entry(const std::string& section, const char* key, const char* ini) {
    std::array<char, 4096> value{};
    SQLGetPrivateProfileString(section.c_str(), key, "", value.data(), value.size(), ini);
    return value.data();
}

/// The file name of the driver's library, as the data source or ODBC's configuration of drivers gives it.
std::string driverLibrary(const std::string& dsn) {
    const std::string driver = attribute(dsn, "Driver");
    const std::string library = entry(driver, "Driver", "odbcinst.ini");
    return std::filesystem::path{library.empty() ? driver : library}.filename();
}

}  // namespace

void requireDataSource(const std::string& dsn) {
    if (attribute(dsn, "Driver").empty())
        throw std::runtime_error("ODBC knows no data source " + dsn);
}

std::string attribute(const std::string& dsn, const char* name) {
    return entry(dsn, name, "odbc.ini");
}

const db::Dialect& dialectOf(const std::string& dsn) {
    requireDataSource(dsn);
    return db::dialectOfDriver(driverLibrary(dsn));
}

bool keepsFile(const std::string& dsn) {
    return dialectOf(dsn).keepsFiles();
}

db::Dialect::Attributes attributesOf(const std::string& dsn) {
    return [dsn](const char* name) { return attribute(dsn, name); };
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
    const auto log = dialectOf(dsn).loggedPassword(attributesOf(dsn));
    return log ? std::optional{"The data source " + dsn + " has " + *log} : std::nullopt;
}

void connect(db::Connection& connection, const std::string& dsn, const std::string& database) {
    connection.setConnectString("DSN=" + dsn + (database.empty() ? "" : ";Database=" + database));
    connection.setStop(InterruptGuard::isWanted);
    connection.establish();
}

}  // namespace tessaly::tool
