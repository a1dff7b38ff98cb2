#pragma once

#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "db/Connection.h"

/// The tables' version. It stands in the table SchemaVersion, in its one row; a database without that table
/// is from before there were versions, which counts as 1.
namespace tessaly::schema {

inline constexpr std::string_view VersionTable = "SchemaVersion";

/// What makes tables of one version out of those of the version before.
///
/// What is in rows comes in two ways: what can be done at once is a step's own, in the transaction of the
/// upgrade; what has to be read from the objects' files is marked to be filled afterwards (BackfillMark.h).
///
/// Tables, columns and indexes that are new need no step's words: upgrade() finds them lacking and takes them
/// from the engine's SQL text. A step says what it is for, and fills what has to be filled.
struct Step {
    int version;             ///< of the tables that it leaves
    std::string_view about;  ///< what is printed of it
    /// Runs when nothing lacks any more, in the transaction of the whole upgrade; may be empty.
    std::function<void(const db::Connection&)> fill;
    /// Runs before what lacks is added, in the same transaction; may be empty. For what is to be another one
    /// of the same name: an index with more columns has to be taken away here.
    std::function<void(const db::Connection&)> prepare = {};
};

/// All steps there are, by their versions. The last one's is the version that these programs work with.
[[nodiscard]] std::span<const Step> steps();

[[nodiscard]] int currentVersion();
/// The version of the database's tables. Throws db::Error.
[[nodiscard]] int version(const db::Connection& connection);

/// Makes the database's tables what these programs work with, in one transaction: adds what lacks, runs the
/// steps above the database's version. Gives what was done, a line each; empty when nothing was to be done.
/// Throws std::runtime_error or what derives from it, and has then changed nothing: when the version is a
/// newer one, when there is none of the tables, when the engine refuses, when something lacks that cannot be
/// added to a table.
std::vector<std::string> upgrade(const db::Connection& connection,
                                 std::span<const Step> steps = schema::steps());

/// Runs what has to be filled in tables whose rows come from a database of version `from`.
void fill(const db::Connection& connection, int from);

/// Throws std::runtime_error that names `tessaly-db upgrade` where one of the tables lacks a column or is not
/// there, and one that says so where the version is newer. Other engines than those of this folder pass.
void requireUpgraded(const db::Connection& connection, std::initializer_list<std::string_view> tables);

}  // namespace tessaly::schema
