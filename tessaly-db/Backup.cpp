#include "tessaly-db/Backup.h"

#include <stdexcept>

#include "db/Query.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/InterruptGuard.h"
#include "tessaly-db/NewFile.h"

namespace tessaly::tool {

namespace fs = std::filesystem;

namespace {

void requireSound(const db::Connection& copy) {
    db::Query query{copy, copy.dialect().soundnessCheck()};
    auto rows = query.open();
    const std::string* first = rows.next() ? rows.value(0) : nullptr;
    const std::string verdict = first != nullptr ? *first : "no answer";
    if (verdict != "ok")
        throw std::runtime_error("The database is damaged, and no backup was made: " + verdict);
}

}  // namespace

void backUp(const std::string& dsn, const fs::path& file) {
    const InterruptGuard breakOff;
    const fs::path place = fs::absolute(file).lexically_normal();
    requireNameable(place);
    const db::Dialect& dialect = dialectOf(dsn);
    NewFile copy{place, dialect};
    {
        db::Connection connection;
        connect(connection, dsn);
        db::execute(connection, dialect.copyIntoFile(), {db::varchar(copy.temporary().string())});
    }
    InterruptGuard::check();
    {
        db::Connection connection;
        connect(connection, dsn, copy.temporary().string());
        requireSound(connection);
    }
    breakOff.noMore();
    copy.putInPlace();
}

std::string backupCommand(const std::string& dsn, const fs::path& file) {
    return dialectOf(dsn).backupCommand(attributesOf(dsn), file);
}

}  // namespace tessaly::tool
