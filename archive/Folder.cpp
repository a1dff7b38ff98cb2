#include "archive/Folder.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "archive/SharedFlush.h"

namespace tessaly::archive {

namespace fs = std::filesystem;

namespace {

/// Flushes a folder, however it was opened.
bool isFlushedAlone(const base::FileDescriptor& folder) noexcept {
    if (::fsync(folder.get()) == 0)
        return true;
    if (errno != EBADF)
        return false;
    const base::FileDescriptor handle{::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    return handle.isOpen() && ::fsync(handle.get()) == 0;
}

}  // namespace

base::FileDescriptor openRoot(const fs::path& root) noexcept {
    return base::FileDescriptor{::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
}

base::FileDescriptor openBeneath(const base::FileDescriptor& folder, const fs::path& way,
                                 int flags) noexcept {
    if (!folder.isOpen())
        return {};  // with what its own opening has failed by
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    // A rename anywhere on the machine may come between; the kernel says so instead of trying for ever.
    constexpr int Attempts = 100;
    for (int attempt = 1;; ++attempt) {
        const long file = ::syscall(SYS_openat2, folder.get(), way.c_str(), &how, sizeof how);
        if (file >= 0)
            return base::FileDescriptor{static_cast<int>(file)};
        // The second is what some containers say instead of the first.
        if (errno == ENOSYS || errno == EPERM)
            return openStepByStep(folder, way, flags);
        if ((errno != EAGAIN && errno != EINTR) || attempt == Attempts)
            return {};
    }
}

base::FileDescriptor openStepByStep(const base::FileDescriptor& folder, const fs::path& way,
                                    int flags) noexcept {
    base::FileDescriptor reached;
    const auto from = [&] { return reached.isOpen() ? reached.get() : folder.get(); };
    for (auto part = way.begin(); part != way.end();) {
        const char* name = part->c_str();
        if (part->is_absolute() || *part == "..") {
            errno = EXDEV;
            return {};
        }
        const bool isLast = ++part == way.end();
        const int how = isLast ? flags : O_PATH | O_DIRECTORY;
        base::FileDescriptor next{::openat(from(), name, how | O_NOFOLLOW | O_CLOEXEC)};
        if (!next.isOpen())
            return {};
        reached = std::move(next);
    }
    return reached;
}

bool flushFolder(const base::FileDescriptor& folder) {
    static SharedFlush flushes;
    struct stat found {};
    if (::fstat(folder.get(), &found) < 0)
        return false;
    int fault = 0;
    const bool isDone = flushes.run({found.st_dev, found.st_ino}, [&folder, &fault] {
        const bool isGood = isFlushedAlone(folder);
        fault = errno;
        return isGood;
    });
    if (!isDone)
        errno = fault != 0 ? fault : EIO;  // another thread's flush has failed
    return isDone;
}

}  // namespace tessaly::archive
