#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The tables of the configuration database, one SQL file of this folder per engine.
namespace tessaly::schema {

/// What this folder knows of one engine.
struct Engine {
    std::string_view name;       ///< as db::Connection::engineName() gives it
    std::string_view tables;     ///< the SQL text that makes all tables in an empty database
    std::string_view catalogue;  ///< one query: a row (TableName, Fact) for each thing that `tables` made
    std::string_view loading;    ///< statements before the tables of a new database get their rows
    std::string_view reading;    ///< statements after which a session only reads, every time the same
    bool beginsByStatement;  ///< a transaction in which long sets are walked is begun by the statement BEGIN
    bool bounds;      ///< refuses a text that is longer than its column is wide, a number beyond its type
    int exactDigits;  ///< of a number with a fraction, which stays as it is up to there; 0: always
};

[[nodiscard]] bool isKnown(std::string_view engineName);

/// Throws std::runtime_error for an engine that has no SQL file here. The case of the name does not matter.
[[nodiscard]] const Engine& engine(std::string_view name);

/// The single statements of an SQL text, in order and without its comments. The text has no apostrophes
/// around semicolons or comment marks.
[[nodiscard]] std::vector<std::string> statements(std::string_view sql);

}  // namespace tessaly::schema
