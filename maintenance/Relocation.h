#pragma once

#include <QString>
#include <functional>
#include <optional>
#include <string>

#include "db/Connection.h"

namespace tessaly::maintenance {

/// The path, UTF-8, with the root `from` replaced by `to`; nothing for a path that does not begin with it.
/// The case does not matter, character by character: each is compared by its own upper-case form, so that no
/// character ever stands for two (a sharp s matches a sharp s, not SS). What follows the root is kept byte
/// for byte, and nothing is put in or taken out at the seam.
[[nodiscard]] std::optional<std::string> relocatedPath(const std::string& path, const QString& from,
                                                       const QString& to);

/// Rewrites the StudyPath of every study below the root `from`. Throws db::Error; the rows rewritten before
/// stay so. `goOn` is asked from time to time; false ends the work where it stands.
void relocateStudies(const db::Connection& connection, const QString& from, const QString& to,
                     const std::function<bool()>& goOn);

}  // namespace tessaly::maintenance
