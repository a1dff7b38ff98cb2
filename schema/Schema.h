#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "db/Connection.h"

/// The tables of the configuration database, one SQL file of this folder per engine.
namespace tessaly::schema {

/// What this folder knows of one engine.
struct Engine {
    std::string_view name;       ///< as db::Dialect::engineName() gives it
    std::string_view tables;     ///< the SQL text that makes all tables in an empty database
    std::string_view catalogue;  ///< one query: a row (TableName, Fact) for each thing that `tables` made
    bool bounds;      ///< refuses a text that is longer than its column is wide, a number beyond its type
    int exactDigits;  ///< of a number with a fraction, which stays as it is up to there; 0: always
};

/// The connection's engine has an SQL file here.
[[nodiscard]] bool isKnown(const db::Connection& connection);

/// Throws std::runtime_error for an engine that has no SQL file here.
[[nodiscard]] const Engine& engine(const db::Connection& connection);
/// The case of the name does not matter.
[[nodiscard]] const Engine& engine(std::string_view name);

/// The single statements of an SQL text, in order and without its comments. The text has no apostrophes
/// around semicolons or comment marks.
[[nodiscard]] std::vector<std::string> statements(std::string_view sql);

}  // namespace tessaly::schema
