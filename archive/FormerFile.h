#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

#include "base/FileDescriptor.h"

namespace tessaly::archive {

/// The file of an instance that comes to lie elsewhere. Made while the instance's row is locked: who stores
/// it at the old place again has that row after this one, and may not lose its file to remove().
class FormerFile {
  public:
    /// Locks what is there. Throws std::system_error when others have it locked for too long.
    explicit FormerFile(const std::filesystem::path& path);

    /// Takes it away, if the name is still its own. Never fails.
    void remove() const noexcept;

  private:
    base::FileDescriptor folder_;
    std::string name_;
    base::FileDescriptor file_;
    std::optional<struct stat> found_;
};

}  // namespace tessaly::archive
