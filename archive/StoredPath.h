#pragma once

#include <algorithm>
#include <string>

namespace tessaly::archive {

/// A path of the archive's tables as the file system takes it: what is stored has backslashes between its
/// parts.
[[nodiscard]] inline std::string localPath(std::string stored) {
    std::replace(stored.begin(), stored.end(), '\\', '/');
    return stored;
}

}  // namespace tessaly::archive
