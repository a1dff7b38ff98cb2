#include "maintenance/FileLease.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace tessaly::maintenance {

namespace {

FileLease::State takeLease(int descriptor) {
    // Whoever comes meanwhile is announced by a signal. The usual one would end the process; this one is
    // ignored unless somebody asks for it.
    fcntl(descriptor, F_SETSIG, SIGURG);
    if (fcntl(descriptor, F_SETLEASE, F_WRLCK) == 0)
        return FileLease::State::Held;
    return errno == EAGAIN ? FileLease::State::InUse : FileLease::State::Unavailable;
}

}  // namespace

FileLease::FileLease(const std::filesystem::path& file, int access)
    : file_(open(file.c_str(), access | O_CLOEXEC)) {
    if (!file_.isOpen())
        throw std::system_error(errno, std::generic_category(), file.string());
    state_ = takeLease(file_.get());
}

}  // namespace tessaly::maintenance
