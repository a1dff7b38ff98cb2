#include "tests/archive/UnnamedFiles.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>

namespace {

std::atomic<bool> areAllowed{true};

}  // namespace

namespace tessaly::test {

void allowUnnamedFiles(bool allowed) {
    areAllowed = allowed;
}

bool allowsUnnamedFiles() {
    return areAllowed;
}

}  // namespace tessaly::test

// The program's definition comes before the C library's.
extern "C" int openat(int folder, const char* path, int flags, ...) {
    const bool isUnnamed = (flags & O_TMPFILE) == O_TMPFILE;
    mode_t mode = 0;
    if (isUnnamed || (flags & O_CREAT) != 0) {
        va_list more;
        va_start(more, flags);
        mode = va_arg(more, mode_t);  // NOLINT(clang-analyzer-valist.Uninitialized): the check's mistake
        va_end(more);
    }
    if (isUnnamed && !areAllowed) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_openat, folder, path, flags, mode));
}
