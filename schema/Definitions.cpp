#include "schema/Definitions.h"

#include <algorithm>
#include <cstdlib>

#include "base/Text.h"

namespace tessaly::schema {

namespace {

constexpr std::string_view Blanks = " \t\r\n";

/// The next word or mark, which is taken off the text.
std::string_view takeWord(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(Blanks), text.size()));
    const auto end = text.find_first_of(" \t\r\n(),");
    const auto word = text.substr(0, std::max<std::size_t>(std::min(end, text.size()), text.empty() ? 0 : 1));
    text.remove_prefix(word.size());
    return word;
}

std::string unquoted(std::string_view name) {
    const bool quoted = name.size() > 1 && name.front() == '"' && name.back() == '"';
    return std::string{quoted ? name.substr(1, name.size() - 2) : name};
}

/// What stands between the first parenthesis and the one that closes it, cut at the commas outside others.
std::vector<std::string_view> list(std::string_view text) {
    std::vector<std::string_view> parts;
    auto start = text.find('(') + 1;
    int depth = 1;
    for (auto at = start; depth > 0 && at < text.size(); ++at) {
        if (text[at] == '(')
            ++depth;
        if (text[at] == ')')
            --depth;
        if ((text[at] == ',' && depth == 1) || depth == 0) {
            parts.push_back(base::trimmed(text.substr(start, at - start), Blanks));
            start = at + 1;
        }
    }
    return parts;
}

std::vector<std::string> names(std::string_view text) {
    std::vector<std::string> result;
    for (const auto part : list(text))
        result.push_back(unquoted(part));
    return result;
}

bool has(std::string_view text, std::string_view words) {
    return text.find(words) != std::string_view::npos;
}

Column column(std::string_view line) {
    Column result{.name = {},
                  .definition = std::string{line},
                  .width = {},
                  .fractions = false,
                  .bits = 0,
                  .required = has(line, " NOT NULL"),
                  .generated = has(line, " GENERATED "),
                  .withoutCase = has(line, " COLLATE NOCASE") || has(line, " COLLATE nocase")};
    std::string_view rest = line;
    result.name = unquoted(takeWord(rest));
    const auto type = takeWord(rest);
    if (type == "VARCHAR")
        result.width = std::atoi(std::string{list(rest).front()}.c_str());
    result.fractions = type == "NUMERIC";
    result.bits = type == "SMALLINT" ? 16 : type == "INTEGER" ? 32 : 0;
    return result;
}

Table table(const std::string& statement, std::string_view afterTable) {
    Table result{.name = std::string{takeWord(afterTable)}, .statement = statement, .columns = {}, .key = {}};
    for (const auto line : list(afterTable)) {
        if (line.starts_with("PRIMARY KEY")) {
            result.key = names(line);
            continue;
        }
        result.columns.push_back(column(line));
        if (has(line, " PRIMARY KEY"))
            result.key = {result.columns.back().name};
    }
    return result;
}

Index index(const std::string& statement, std::string_view afterIndex, bool unique) {
    Index result{
        .table = {}, .name = std::string{takeWord(afterIndex)}, .statement = statement, .columns = {}};
    takeWord(afterIndex);  // ON
    result.table = takeWord(afterIndex);
    result.columns = names(afterIndex);
    result.unique = unique;
    return result;
}

}  // namespace

Definitions definitions(const Engine& engine) {
    Definitions result;
    for (const auto& statement : statements(engine.tables)) {
        std::string_view rest = statement;
        const auto verb = takeWord(rest);
        const auto unique = base::trimmed(rest, Blanks).starts_with("UNIQUE");
        if (unique)
            takeWord(rest);
        const auto what = takeWord(rest);
        if (verb == "PRAGMA")
            result.settings.push_back(statement);
        else if (verb == "INSERT")
            result.rows.push_back(statement);
        else if (what == "TABLE")
            result.tables.push_back(table(statement, rest));
        else if (what == "INDEX")
            result.indexes.push_back(index(statement, rest, unique));
        else
            result.before.push_back(statement);
    }
    return result;
}

const Table* findTable(const Definitions& definitions, std::string_view name) {
    const auto& tables = definitions.tables;
    const auto found = std::find_if(tables.begin(), tables.end(), [name](const Table& candidate) {
        return base::sameName(candidate.name, name);
    });
    return found == tables.end() ? nullptr : &*found;
}

const Column* findColumn(const Table& table, std::string_view name) {
    const auto found = std::find_if(table.columns.begin(), table.columns.end(), [name](const Column& column) {
        return base::sameName(column.name, name);
    });
    return found == table.columns.end() ? nullptr : &*found;
}

}  // namespace tessaly::schema
