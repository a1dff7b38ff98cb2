#include "schema/Catalogue.h"

#include <algorithm>

#include "base/Text.h"
#include "db/Query.h"

namespace tessaly::schema {

namespace {

constexpr std::string_view TheTable = "the table";

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// How the key of FtpNodes compares is no fact: a console that finds no such table makes one, with the one
// statement that it has for every engine.
bool comparisonCounts(const Table& table) {
    return !base::sameName(table.name, "FtpNodes");
}

/// Sorted, because the order of a key's columns makes it no less unique.
std::string uniqueKey(const Table& table, std::vector<std::string> columns) {
    std::sort(columns.begin(), columns.end(), WithoutCase{});
    std::string list;
    for (const auto& name : columns) {
        const Column* column = findColumn(table, name);
        const bool withoutCase = column != nullptr && column->withoutCase && comparisonCounts(table);
        list.append(list.empty() ? "" : ", ").append(name).append(withoutCase ? " without case" : "");
    }
    return "the unique key (" + list + ")";
}

}  // namespace

bool WithoutCase::operator()(std::string_view a, std::string_view b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return lower(x) < lower(y); });
}

Catalogue readCatalogue(const db::Connection& connection) {
    Catalogue catalogue;
    db::Query query{connection, std::string{engine(connection).catalogue}};
    auto rows = query.open();
    while (rows.next()) {
        const auto table = rows.text("TableName");
        catalogue[table].insert(rows.text("Fact"));
    }
    return catalogue;
}

std::string factOf(const Column& column) {
    return "the column " + column.name + (column.width ? " for text" : " for numbers");
}

std::string factOf(const Table& table, const Index& index) {
    if (index.unique)
        return uniqueKey(table, index.columns);
    return "an index for look-ups by " + index.columns.front();
}

std::string keyOf(const Table& table) {
    return table.key.empty() ? std::string{} : uniqueKey(table, table.key);
}

Catalogue expectedCatalogue(const Definitions& definitions) {
    Catalogue catalogue;
    for (const auto& table : definitions.tables) {
        auto& facts = catalogue[table.name];
        facts.emplace(TheTable);
        if (auto key = keyOf(table); !key.empty())
            facts.insert(std::move(key));
        for (const auto& column : table.columns)
            facts.insert(factOf(column));
    }
    for (const auto& index : definitions.indexes)
        if (const Table* table = findTable(definitions, index.table); table != nullptr)
            catalogue[index.table].insert(factOf(*table, index));
    return catalogue;
}

std::string Lack::text() const {
    return fact.empty() ? "The table " + table + " is missing" : table + " lacks " + fact;
}

std::vector<Lack> lacks(const Catalogue& expected, const Catalogue& actual) {
    std::vector<Lack> result;
    for (const auto& [table, facts] : expected) {
        const auto found = actual.find(table);
        if (found == actual.end()) {
            result.push_back({.table = table, .fact = {}});
            continue;
        }
        for (const auto& fact : facts)
            if (!found->second.contains(fact))
                result.push_back({.table = table, .fact = fact});
    }
    return result;
}

}  // namespace tessaly::schema
