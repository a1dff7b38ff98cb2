#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "schema/Schema.h"

namespace tessaly::schema {

/// A column as its engine's SQL text defines it.
struct Column {
    std::string name;
    std::string definition;    ///< its line, name and all, ready for ALTER TABLE
    std::optional<int> width;  ///< of a text, in characters; nothing for a number
    bool fractions = false;    ///< of a number: it may have one
    int bits = 0;              ///< of a whole number's type, in the words of SQL; 0 for one without bounds
    bool required = false;     ///< takes no NULL
    bool generated = false;    ///< the engine's own work: takes no value
    bool withoutCase = false;  ///< compares so
};

struct Table {
    std::string name;
    std::string statement;
    std::vector<Column> columns;
    std::vector<std::string> key;  ///< the primary key's columns
};

struct Index {
    std::string table;
    std::string name;
    std::string statement;
    std::vector<std::string> columns;
    bool unique = false;
};

/// What an engine's SQL text makes, taken apart; in the text's order.
struct Definitions {
    std::vector<std::string> settings;  ///< of the database file; they stand outside of transactions
    std::vector<std::string> before;    ///< what the tables need
    std::vector<Table> tables;
    std::vector<Index> indexes;
    std::vector<std::string> rows;  ///< INSERT statements
};

[[nodiscard]] Definitions definitions(const Engine& engine);

/// Null where there is none; the case of the name does not matter.
[[nodiscard]] const Table* findTable(const Definitions& definitions, std::string_view name);
[[nodiscard]] const Column* findColumn(const Table& table, std::string_view name);

}  // namespace tessaly::schema
