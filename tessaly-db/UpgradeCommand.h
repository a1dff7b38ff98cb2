#pragma once

#include <string>

namespace tessaly::tool {

/// `tessaly-db upgrade` as it was typed.
struct UpgradeOptions {
    std::string dsn;
    bool quiet = false;
    bool refill = false;  ///< look again for the files that could not be read
};

/// Upgrades the tables, fills older rows from the objects' files, and tells of it on the standard output;
/// shows a bar on a terminal. Gives the exit status. Throws std::runtime_error or what derives from it; what
/// had been filled stays then, and the next run goes on.
[[nodiscard]] int upgrade(const UpgradeOptions& options);

}  // namespace tessaly::tool
