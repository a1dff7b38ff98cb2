#pragma once

#include <string>
#include <vector>

namespace tessaly::tool {

/// What the data source lacks to be used by the console and the server, a line each; empty when nothing.
/// Changes nothing. Throws db::Error when the database fails under the check itself.
[[nodiscard]] std::vector<std::string> findFaults(const std::string& dsn);

}  // namespace tessaly::tool
