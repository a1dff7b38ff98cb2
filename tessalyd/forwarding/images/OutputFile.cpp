#include "tessalyd/forwarding/images/OutputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tessaly::tessalyd::images {

namespace {

[[noreturn]] void fail() {
    throw std::system_error{errno, std::generic_category(), "a file cannot be written"};
}

}  // namespace

OutputFile::OutputFile(const std::filesystem::path& path)
    : file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600)) {
    if (!file_.isOpen())
        fail();
}

void OutputFile::write(std::span<const char> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
            fail();
        if (count > 0)
            bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

void OutputFile::beginFlush() noexcept {
    ::sync_file_range(file_.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
}

void OutputFile::close() {
    if (::close(file_.release()) < 0 && errno != EINTR)
        fail();
}

}  // namespace tessaly::tessalyd::images
