#include "schema/Schema.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "db/Text.h"
#include "schema/Embedded.h"

namespace tessaly::schema {

namespace {

constexpr std::array Engines{
    Engine{.name = "SQLite",
           .tables = embedded::sqlite,
           .catalogue = embedded::sqlite_catalogue,
           .scratch = ":memory:"},
    Engine{.name = "PostgreSQL",
           .tables = embedded::postgresql,
           .catalogue = embedded::postgresql_catalogue,
           .scratchStart = "CREATE SCHEMA tessaly_scratch; SET LOCAL search_path TO tessaly_scratch"},
};

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view Blanks = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(Blanks), text.size()));
    return text.substr(0, text.find_last_not_of(Blanks) + 1);
}

/// Up to `end`, which is skipped, or the whole rest.
std::string_view takeUntil(std::string_view& text, char end) {
    const auto length = std::min(text.find(end), text.size());
    const auto taken = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return taken;
}

}  // namespace

const Engine& engine(std::string_view name) {
    const auto* const found = std::find_if(Engines.begin(), Engines.end(), [name](const Engine& candidate) {
        return db::detail::sameName(candidate.name, name);
    });
    if (found == Engines.end())
        throw std::runtime_error("There are no tables for the database engine " + std::string{name});
    return *found;
}

std::vector<std::string> statements(std::string_view sql) {
    std::string bare;
    while (!sql.empty()) {
        const auto line = takeUntil(sql, '\n');
        bare.append(line.substr(0, line.find("--"))).push_back('\n');
    }
    std::vector<std::string> result;
    for (std::string_view rest = bare; !rest.empty();) {
        const auto statement = trimmed(takeUntil(rest, ';'));
        if (!statement.empty())
            result.emplace_back(statement);
    }
    return result;
}

}  // namespace tessaly::schema
