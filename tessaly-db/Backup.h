#pragma once

#include <filesystem>
#include <string>

namespace tessaly::tool {

/// Copies the data source's database into a new file, as it is at one moment, while others use it. The copy
/// is checked and on the disk before the file gets its name; an existing one is never touched. Throws
/// std::runtime_error or what derives from it.
void backUp(const std::string& dsn, const std::filesystem::path& file);

/// The command line that makes a backup of a server's database in that file. No password stands in it.
/// Empty for an engine of which it is not known.
[[nodiscard]] std::string backupCommand(const std::string& dsn, const std::filesystem::path& file);

}  // namespace tessaly::tool
