#include "tessaly-db/Backup.h"

#include <array>
#include <stdexcept>

#include "db/Query.h"
#include "tessaly-db/BreakOff.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/NewFile.h"

namespace tessaly::tool {

namespace fs = std::filesystem;

namespace {

/// As a POSIX shell reads one word.
std::string shellWord(const std::string& text) {
    constexpr std::string_view Plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./=:,@%+";
    if (!text.empty() && text.find_first_not_of(Plain) == std::string::npos)
        return text;
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? std::string{"'\\''"} : std::string{c};
    return word + "'";
}

std::string firstOf(const std::string& dsn, std::initializer_list<const char*> names) {
    for (const char* name : names)
        if (auto value = attribute(dsn, name); !value.empty())
            return value;
    return {};
}

void requireSound(const db::Connection& copy) {
    db::Query query{copy, "PRAGMA integrity_check(1)"};
    auto rows = query.open();
    const std::string verdict = rows.next() ? rows.text("integrity_check") : "no answer";
    if (verdict != "ok")
        throw std::runtime_error("The database is damaged, and no backup was made: " + verdict);
}

}  // namespace

void backUp(const std::string& dsn, const fs::path& file) {
    const BreakOff breakOff;
    NewFile copy{fs::absolute(file).lexically_normal()};
    {
        db::Connection connection;
        connect(connection, dsn);
        db::execute(connection, "VACUUM INTO ?", {db::varchar(copy.temporary().string())});
    }
    BreakOff::check();
    {
        db::Connection connection;
        connect(connection, dsn, copy.temporary().string());
        requireSound(connection);
    }
    breakOff.noMore();
    copy.putInPlace();
}

std::string backupCommand(const std::string& dsn, const fs::path& file) {
    std::string line = "pg_dump --format=custom";
    const auto add = [&line](const char* option, const std::string& value) {
        if (!value.empty())
            line += std::string{" "} + option + "=" + shellWord(value);
    };
    add("--host", firstOf(dsn, {"Servername", "Server"}));
    add("--port", attribute(dsn, "Port"));
    add("--username", firstOf(dsn, {"Username", "UserName", "UID"}));
    add("--dbname", attribute(dsn, "Database"));
    add("--file", fs::absolute(file).lexically_normal().string());
    return line;
}

}  // namespace tessaly::tool
