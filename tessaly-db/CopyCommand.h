#pragma once

#include <string>
#include <vector>

namespace tessaly::tool {

/// `tessaly-db copy` as it was typed.
struct CopyOptions {
    std::string from;
    std::string to;
    std::vector<std::string> maps;
    bool dryRun = false;
    bool quiet = false;
    long limit = 20;  ///< of the rows that a dry run shows
};

/// Copies, and tells of it on the standard output; shows a bar on a terminal. Gives the exit status: 1 for a
/// dry run that found what does not fit. Throws std::runtime_error or what derives from it.
[[nodiscard]] int copy(const CopyOptions& options);

}  // namespace tessaly::tool
