#include "tessaly-db/Backup.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "db/Query.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/InterruptGuard.h"
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

using Words = std::vector<std::pair<std::string, std::string>>;

/// What the driver hands to the client's library as it stands: "word=value word='a value'".
Words wordsOf(std::string_view text) {
    if (text.starts_with('{') && text.ends_with('}'))
        text = text.substr(1, text.size() - 2);
    const auto skipBlanks = [&text] {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    };
    Words words;
    for (skipBlanks(); text.find('=') != std::string_view::npos; skipBlanks()) {
        std::string name{text.substr(0, text.find('='))};
        name.erase(std::min(name.find(' '), name.size()));
        text.remove_prefix(text.find('=') + 1);
        skipBlanks();
        const bool quoted = text.starts_with('\'');
        std::size_t at = quoted ? 1 : 0;
        std::string value;
        for (; at < text.size() && text[at] != (quoted ? '\'' : ' '); ++at) {
            if (text[at] == '\\' && at + 1 < text.size())
                ++at;
            value.push_back(text[at]);
        }
        text.remove_prefix(std::min(at + (quoted ? 1 : 0), text.size()));
        words.emplace_back(std::move(name), std::move(value));
    }
    return words;
}

/// How safe the line to the server is to be, as the environment says it to the server's own programs. Of the
/// other words some are for the driver alone, and one is the password.
std::string assignments(const std::string& dsn) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 8> Variables{
        {{"sslmode", "PGSSLMODE"},
         {"sslrootcert", "PGSSLROOTCERT"},
         {"sslcert", "PGSSLCERT"},
         {"sslkey", "PGSSLKEY"},
         {"sslcrl", "PGSSLCRL"},
         {"channel_binding", "PGCHANNELBINDING"},
         {"gssencmode", "PGGSSENCMODE"},
         {"connect_timeout", "PGCONNECT_TIMEOUT"}}};
    Words words = wordsOf(attribute(dsn, "pqopt"));
    if (auto mode = attribute(dsn, "SSLmode"); !mode.empty())
        words.insert(words.begin(), {"sslmode", std::move(mode)});
    std::string line;
    for (const auto& [name, value] : words)
        for (const auto& [word, variable] : Variables)
            if (name == word)
                line.append(variable).append("=").append(shellWord(value)).append(" ");
    return line;
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
    const InterruptGuard breakOff;
    const fs::path place = fs::absolute(file).lexically_normal();
    requireNameable(place);
    NewFile copy{place};
    {
        db::Connection connection;
        connect(connection, dsn);
        db::execute(connection, "VACUUM INTO ?", {db::varchar(copy.temporary().string())});
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
    std::string line = assignments(dsn) + "pg_dump --format=custom";
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
