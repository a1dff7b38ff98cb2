#pragma once

#include <string>

namespace tessaly::tessalyd::films {

/// A UID that nobody has had, below the one that a site has for its own; where that has no room left, or is
/// none, below 2.25.
[[nodiscard]] std::string newUid(const std::string& baseUid);

}  // namespace tessaly::tessalyd::films
