#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tessaly::tool {

/// New roots for the paths of an archive that moves to another machine.
class PathMap {
  public:
    /// From texts like `D:\Images=/srv/images`: the old root ends with the first equals sign. Throws
    /// std::runtime_error for one that has no two sides.
    explicit PathMap(const std::vector<std::string>& texts);

    /// The path with the longest old root that it lies under replaced; what follows stays as it is stored,
    /// backslashes and all. A path under none stays whole.
    ///
    /// Both kinds of slashes are the same in an old root, and so are upper and lower case in one of Windows'
    /// (a drive or a share).
    [[nodiscard]] std::string mapped(const std::string& path) const;

  private:
    struct Root {
        std::string from;
        std::string to;
    };
    std::vector<Root> roots_;  // the longest first
};

}  // namespace tessaly::tool
