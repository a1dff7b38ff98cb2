#include "tessaly-db/Source.h"

#include <unistd.h>

#include <array>
#include <fstream>
#include <stdexcept>

#include "db/Query.h"
#include "schema/Schema.h"
#include "tessaly-db/DataSource.h"

namespace tessaly::tool {

namespace fs = std::filesystem;

namespace {

fs::path logOf(fs::path file) {
    return file += "-wal";
}

/// The header says whether the database is used with a write-ahead log.
bool hasLogMode(const fs::path& file) {
    constexpr std::size_t WriteVersion = 18;
    std::array<char, 20> header{};
    std::ifstream stream{file, std::ios::binary};
    stream.read(header.data(), header.size());
    return stream && header[WriteVersion] == 2;
}

bool canWriteIn(const fs::path& folder) {
    return access(folder.empty() ? "." : folder.c_str(), W_OK) == 0;
}

/// The path as SQLite reads it in a URI, and ODBC in a connect string.
std::string uri(const fs::path& file, const char* mode) {
    std::string result = "file:";
    for (const char c : file.string()) {
        constexpr std::string_view Marks = "%?#;{}=";
        constexpr std::string_view Digits = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(c);
        if (Marks.find(c) == std::string_view::npos)
            result.push_back(c);
        else
            result.append("%").append(1, Digits[byte >> 4U]).append(1, Digits[byte & 15U]);
    }
    return result + "?" + mode;
}

struct stat statusOf(const fs::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0)
        throw std::runtime_error("Cannot read " + file.string());
    return status;
}

}  // namespace

std::string Source::connectString(const std::string& dsn) {
    std::string words = "DSN=" + dsn;
    if (!keepsFile(dsn))
        return words;
    // The data source may ask for a journal mode, which would be written into the file. No word of ODBC takes
    // that back; a mode that SQLite does not know changes nothing.
    words += ";JournalMode=keep";
    const fs::path file = attribute(dsn, "Database");
    if (!hasLogMode(file))
        return words + ";Database=" + uri(file, "mode=ro");
    if (fs::exists(logOf(file)))
        return words + ";Database=" + uri(file, "mode=ro");  // its writer's log and index are there, and stay
    // Whoever reads a database with a log makes the log. As one that could write, it also takes it away.
    if (canWriteIn(file.parent_path()) && access(file.c_str(), W_OK) == 0)
        return words;
    file_ = file;
    before_ = statusOf(file);
    return words + ";Database=" + uri(file, "immutable=1");
}

Source::Source(const std::string& dsn) {
    connection_.setConnectString(connectString(dsn));
    connection_.establish();
    if (connection_.needsWalker())
        walker_ = connection_.walker();
    const std::string engine = connection_.engineName();
    known_ = schema::isKnown(engine);
    if (!known_)
        return;
    for (const auto& statement : schema::statements(schema::engine(engine).reading))
        db::execute(connection(), statement);
    moment_.emplace(connection());
}

std::optional<std::vector<std::string>> Source::columns(const std::string& table) const {
    if (!connection_.hasTable(table))
        return std::nullopt;
    db::Query query{connection(), "SELECT * FROM " + table};
    const auto rows = query.open();
    std::vector<std::string> names;
    for (const auto& column : rows.columns())
        names.push_back(column.name);
    return names;
}

std::optional<long long> Source::count(const std::string& table) const {
    if (!known_)
        return std::nullopt;
    db::Query query{connection(), "SELECT COUNT(*) AS Num FROM " + table};
    auto rows = query.open();
    return rows.next() ? std::optional{rows.integer("Num")} : std::nullopt;
}

void Source::requireUnchanged() const {
    if (file_.empty())
        return;
    const struct stat now = statusOf(file_);
    const bool same = now.st_ino == before_.st_ino && now.st_size == before_.st_size &&
                      now.st_mtim.tv_sec == before_.st_mtim.tv_sec &&
                      now.st_mtim.tv_nsec == before_.st_mtim.tv_nsec && !fs::exists(logOf(file_));
    if (!same)
        throw std::runtime_error(file_.string() + " was written while it was read");
}

}  // namespace tessaly::tool
