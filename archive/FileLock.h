#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "base/FileDescriptor.h"

namespace tessaly::archive {

enum class FileLock {
    Held,        ///< until the file is closed, however the process ends
    OfSomebody,  ///< of another descriptor has it, in whatever process, on whatever machine
    NotToBeHad,  ///< on this file system
};

/// Locks a whole file that is open for writing, without waiting. The locks are those of fcntl, which network
/// file systems pass on to other machines, in the form that belongs to the open file and not to the process:
/// to close another descriptor of the file does not end it.
[[nodiscard]] inline FileLock lockFile(const base::FileDescriptor& file) noexcept {
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (::fcntl(file.get(), F_OFD_SETLK, &whole) == 0)
        return FileLock::Held;
    return errno == EAGAIN || errno == EACCES ? FileLock::OfSomebody : FileLock::NotToBeHad;
}

/// The same, but blocks while another store, in this server or another, has the lock.
/// Throws std::system_error when that takes too long.
[[nodiscard]] inline FileLock waitForLock(const base::FileDescriptor& file) {
    using namespace std::chrono_literals;
    constexpr auto Interval = 2ms;
    constexpr int Times = 2500;
    for (int i = 0; i < Times; ++i) {
        if (const FileLock lock = lockFile(file); lock != FileLock::OfSomebody)
            return lock;
        std::this_thread::sleep_for(Interval);
    }
    throw std::system_error{std::make_error_code(std::errc::device_or_resource_busy),
                            "a store of the same instance does not come to its end"};
}

[[nodiscard]] inline bool isSameFile(const struct stat& a, const struct stat& b) noexcept {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// The name in that folder is still that of the open file: a name may come to stand for another one before it
/// is locked.
[[nodiscard]] inline bool isNamed(const base::FileDescriptor& file, const base::FileDescriptor& folder,
                                  const std::string& name) noexcept {
    struct stat opened {};
    struct stat found {};
    return ::fstat(file.get(), &opened) == 0 &&
           ::fstatat(folder.get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
           isSameFile(opened, found);
}

/// What has that name in the folder, a symbolic link included.
[[nodiscard]] inline std::optional<struct stat> entryAt(const base::FileDescriptor& folder,
                                                        const std::string& name) noexcept {
    struct stat found {};
    if (::fstatat(folder.get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) < 0)
        return std::nullopt;
    return found;
}

/// Opens and locks the file of that name. Without a lock on a file system that has none; closed if the file
/// is missing or may not be opened. Throws as waitForLock().
[[nodiscard]] inline base::FileDescriptor lockedAt(const base::FileDescriptor& folder,
                                                   const std::string& name) {
    for (;;) {
        // For writing, although nothing is written: network file systems give no other the lock.
        base::FileDescriptor file{
            ::openat(folder.get(), name.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
        if (!file.isOpen() || waitForLock(file) == FileLock::NotToBeHad || isNamed(file, folder, name))
            return file;
    }
}

}  // namespace tessaly::archive
