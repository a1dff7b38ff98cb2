#include "tessalyd/forwarding/images/ScratchFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace tessaly::tessalyd::images {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error{errno, std::generic_category(), what};
}

/// Not every file system has files without a name from the start.
base::FileDescriptor openScratch(const std::filesystem::path& folder) {
    base::FileDescriptor file{::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)};
    if (file.isOpen())
        return file;
    std::string name = (folder / ".scratch-XXXXXX").string();
    file = base::FileDescriptor{::mkostemp(name.data(), O_CLOEXEC)};
    if (!file.isOpen() || ::unlink(name.c_str()) < 0)
        fail("a scratch file");
    return file;
}

}  // namespace

ScratchFile::ScratchFile(const std::filesystem::path& folder) : file_(openScratch(folder)) {}

void ScratchFile::write(std::uint64_t at, std::span<const char> bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = ::pwrite(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(at));
        if (count < 0 && errno != EINTR)
            fail("a scratch file");
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
            at += static_cast<std::uint64_t>(count);
        }
    }
}

void ScratchFile::read(std::uint64_t at, std::span<char> target) const {
    while (!target.empty()) {
        const ssize_t count = ::pread(file_.get(), target.data(), target.size(), static_cast<off_t>(at));
        if (count == 0)
            errno = EIO;
        if (count == 0 || (count < 0 && errno != EINTR))
            fail("a scratch file");
        if (count > 0) {
            target = target.subspan(static_cast<std::size_t>(count));
            at += static_cast<std::uint64_t>(count);
        }
    }
}

std::size_t ScratchFile::size() const {
    struct stat found {};
    if (::fstat(file_.get(), &found) < 0)
        fail("a scratch file");
    return static_cast<std::size_t>(found.st_size);
}

}  // namespace tessaly::tessalyd::images
