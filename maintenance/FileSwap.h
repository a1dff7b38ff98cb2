#pragma once

#include <sys/types.h>

#include <filesystem>
#include <utility>

#include "base/FileDescriptor.h"

namespace tessaly::maintenance {

// Putting one file in the place of another so that every instant, a power failure included, finds the one or
// the other whole. All throw std::system_error.

/// Gives `file` the owner, the mode, the access list and the user attributes of `model`. False, and some of
/// them are missing, where this user may not give a file that owner or group.
[[nodiscard]] bool copyAttributes(const std::filesystem::path& model, const std::filesystem::path& file);

/// Has the disk begin with a file that is still being written, so that flushFile() has less to wait for.
/// Promises nothing, and never fails.
class EarlyFlush {
  public:
    /// The file need not be there yet.
    explicit EarlyFlush(std::filesystem::path file) : path_(std::move(file)) {}

    /// To be called now and then while the file is written: hands the disk a part of what is there.
    void advance() noexcept;
    /// When it is written: hands over the rest.
    void finish() noexcept;

  private:
    [[nodiscard]] off_t waiting() noexcept;

    std::filesystem::path path_;
    base::FileDescriptor file_;
    off_t handed_ = 0;
};

/// Returns when the file's content and attributes are on the disk.
void flushFile(const std::filesystem::path& file);

/// Renames `file`, flushed before, to `target` in the same folder. The folder is flushed before, so that what
/// was removed from it does not come back beside the new file, and after.
void replaceFile(const std::filesystem::path& file, const std::filesystem::path& target);

}  // namespace tessaly::maintenance
