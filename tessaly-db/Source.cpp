#include "tessaly-db/Source.h"

#include <stdexcept>

#include "db/Query.h"
#include "schema/Schema.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/InterruptGuard.h"

namespace tessaly::tool {

namespace fs = std::filesystem;

namespace {

struct stat statusOf(const fs::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0)
        throw std::runtime_error("Cannot read " + file.string());
    return status;
}

}  // namespace

Source::Source(const std::string& dsn) {
    const db::ReadOnlyAccess access = dialectOf(dsn).readOnlyAccess(attribute(dsn, "Database"));
    file_ = access.unguarded;
    absent_ = access.absent;
    if (!file_.empty())
        before_ = statusOf(file_);
    connection_.setConnectString("DSN=" + dsn + (access.words.empty() ? "" : ";" + access.words));
    connection_.setPurpose(db::Purpose::Snapshot);
    connection_.setStop(InterruptGuard::isWanted);
    connection_.establish();
    known_ = schema::isKnown(connection_);
    if (known_)
        moment_.emplace(connection_);
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
                      now.st_mtim.tv_nsec == before_.st_mtim.tv_nsec && !fs::exists(absent_);
    if (!same)
        throw std::runtime_error(file_.string() + " was written while it was read");
}

}  // namespace tessaly::tool
