#pragma once

#include <fcntl.h>

#include <filesystem>

#include "base/FileDescriptor.h"

namespace tessaly::maintenance {

/// Asks the kernel whether anybody else has a file open, and keeps newcomers waiting in their open() while it
/// lives. Sees what no database lock shows: a connection that idles without a lock. Hold it for an instant
/// only, and with no other descriptor of the file in this process.
class FileLease {
  public:
    enum class State {
        Held,        ///< this process alone has it open
        InUse,       ///< somebody else has it open
        Unavailable  ///< the file system gives no leases, or not to this user: nothing is known
    };

    /// Opens the file with O_RDONLY or O_RDWR. Throws std::system_error when it cannot be opened so.
    explicit FileLease(const std::filesystem::path& file, int access = O_RDONLY);

    [[nodiscard]] State state() const noexcept { return state_; }
    /// The file itself, which even this process cannot open once more while the lease lives.
    [[nodiscard]] int descriptor() const noexcept { return file_.get(); }

  private:
    base::FileDescriptor file_;  // its end gives the lease back
    State state_;
};

}  // namespace tessaly::maintenance
