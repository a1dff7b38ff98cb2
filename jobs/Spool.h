#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>
#include <string>

#include "archive/Location.h"
#include "base/FileDescriptor.h"

namespace tessaly::jobs {

/// What a job needs and what is too long for its row lies in a file of the spool folder, which every server
/// on the archive sees: SpoolFolder in a root, mode 0700; files have mode 0600. A job's subject names its
/// file by the whole path. Every operation throws std::system_error.
class Spool {
  public:
    /// The folder is made when something is first put there.
    explicit Spool(const std::filesystem::path& root) : folder_(root / archive::SpoolFolder) {}

    [[nodiscard]] const std::filesystem::path& folder() const noexcept { return folder_; }

    /// A new file or folder under a name that nobody has had: the kind's and a random part. It is locked as
    /// long as the descriptor is open, which keeps clean() from it until a job has it.
    struct Entry {
        base::FileDescriptor descriptor;  ///< of a file: open for reading and writing
        std::filesystem::path path;
    };
    [[nodiscard]] Entry makeFile(const std::string& kind) const;
    [[nodiscard]] Entry makeFolder(const std::string& kind) const;

    /// Everything of it is on the disk when this returns, its name and a folder's files included.
    static void makeDurable(const Entry& entry);

    /// A new file with this content, durable.
    [[nodiscard]] Entry write(const std::string& kind, std::span<const char> content) const;

    /// Removes what belongs to nobody: no process has it open, and no job has it. Returns how many.
    std::size_t clean(const std::function<bool(const std::filesystem::path&)>& isOfAJob) const;

    /// Nothing happens if it is not there.
    static void remove(const std::filesystem::path& path) noexcept;

  private:
    std::filesystem::path folder_;
};

}  // namespace tessaly::jobs
