#pragma once

#include <string>

#include "db/Connection.h"

namespace tessaly::tessalyd::films {

/// A UID that nobody has had, below the one that a site has for its own; where that has no room left, or is
/// none, below 2.25.
[[nodiscard]] std::string newUid(const std::string& baseUid);

/// The one that the site has for its own; empty if it has none. Throws db::Error.
[[nodiscard]] std::string readBaseUid(const db::Connection& connection);

}  // namespace tessaly::tessalyd::films
