#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "db/Connection.h"
#include "schema/Definitions.h"

namespace tessaly::schema {

/// Names of SQL differ in nothing but case at most.
struct WithoutCase {
    bool operator()(std::string_view a, std::string_view b) const;
};

/// What a database has of that which the programs rely on: facts in words, table by table. The same facts
/// have the same words on every engine.
using Facts = std::set<std::string, WithoutCase>;
using Catalogue = std::map<std::string, Facts, WithoutCase>;

/// Throws db::Error, and std::runtime_error for an engine without tables here.
[[nodiscard]] Catalogue readCatalogue(const db::Connection& connection);

// The words of a fact.
[[nodiscard]] std::string factOf(const Column& column);
[[nodiscard]] std::string factOf(const Table& table, const Index& index);
/// Of the primary key; empty without one.
[[nodiscard]] std::string keyOf(const Table& table);

/// The catalogue of a database that is as the text says.
[[nodiscard]] Catalogue expectedCatalogue(const Definitions& definitions);

/// A table that is not there, or a fact of one that is.
struct Lack {
    std::string table;
    std::string fact;  ///< empty: the whole table

    /// A sentence for the administrator.
    [[nodiscard]] std::string text() const;
};

/// By the order of names.
[[nodiscard]] std::vector<Lack> lacks(const Catalogue& expected, const Catalogue& actual);

}  // namespace tessaly::schema
