#pragma once

#include <string>

namespace tessaly::tool {

/// Gives the space of rows deleted from our tables back to the file system; those of others in the same
/// database of a server stay as they are. A process that is ended meanwhile, by whatever, leaves each table
/// as it was or compacted. Throws std::runtime_error.
void compact(const std::string& dsn);

}  // namespace tessaly::tool
