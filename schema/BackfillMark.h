#pragma once

#include <optional>
#include <string>

#include "db/Connection.h"

/// Rows that were stored before the tables had all of today's columns lack what those repeat of the objects,
/// until it is read from the objects' files. The backfill (maintenance/Backfill.h) does that after the upgrade
/// of the tables, while a server may be storing; how far it has come stands beside the tables' version.
namespace tessaly::schema {

/// The SOP instance UID up to which older rows have been filled; empty at the beginning, nothing when all
/// have been. Tables of a version before this mark count as not begun. Throws db::Error.
[[nodiscard]] std::optional<std::string> filledTo(const db::Connection& connection);

/// Of tables of the current version. Throws db::Error.
void setFilledTo(const db::Connection& connection, const std::optional<std::string>& instance);

}  // namespace tessaly::schema
