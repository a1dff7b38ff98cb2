#pragma once

#include <filesystem>

namespace tessaly::maintenance {

// Putting one file in the place of another so that every instant, a power failure included, finds the one or
// the other whole. All throw std::system_error.

/// Gives `file` the owner, the mode, the access list and the user attributes of `model`.
void copyAttributes(const std::filesystem::path& model, const std::filesystem::path& file);

/// Lets the system begin to write the file's content to the disk and returns at once, so that flushFile() has
/// less to wait for. Promises nothing.
void startFlush(const std::filesystem::path& file) noexcept;

/// Returns when the file's content and attributes are on the disk.
void flushFile(const std::filesystem::path& file);

/// Renames `file`, flushed before, to `target` in the same folder. The folder is flushed before, so that what
/// was removed from it does not come back beside the new file, and after.
void replaceFile(const std::filesystem::path& file, const std::filesystem::path& target);

}  // namespace tessaly::maintenance
