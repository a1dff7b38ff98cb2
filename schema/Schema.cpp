#include "schema/Schema.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "base/Text.h"
#include "db/dialects/Dialect.h"
#include "schema/Embedded.h"

namespace tessaly::schema {

namespace {

constexpr std::array Engines{
    Engine{.name = "SQLite",
           .tables = embedded::sqlite,
           .catalogue = embedded::sqlite_catalogue,
           .bounds = false,
           .exactDigits = 15},
    Engine{.name = "PostgreSQL",
           .tables = embedded::postgresql,
           .catalogue = embedded::postgresql_catalogue,
           .bounds = true,
           .exactDigits = 0},
};

/// Up to `end`, which is skipped, or the whole rest.
std::string_view takeUntil(std::string_view& text, char end) {
    const auto length = std::min(text.find(end), text.size());
    const auto taken = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return taken;
}

const Engine* find(std::string_view name) {
    const auto* const found = std::find_if(Engines.begin(), Engines.end(), [name](const Engine& candidate) {
        return base::sameName(candidate.name, name);
    });
    return found == Engines.end() ? nullptr : found;
}

}  // namespace

bool isKnown(const db::Connection& connection) {
    return find(connection.dialect().engineName()) != nullptr;
}

const Engine& engine(const db::Connection& connection) {
    return engine(connection.dialect().engineName());
}

const Engine& engine(std::string_view name) {
    const Engine* const found = find(name);
    if (found == nullptr)
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
        const auto statement = base::trimmed(takeUntil(rest, ';'), " \t\r\n");
        if (!statement.empty())
            result.emplace_back(statement);
    }
    return result;
}

}  // namespace tessaly::schema
