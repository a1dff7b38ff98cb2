#include "tessalyd/forwarding/ftp/Source.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace tessaly::tessalyd::ftp {

FileSource::FileSource(base::FileDescriptor file) : file_(std::move(file)) {
    struct stat status {};
    if (fstat(file_.get(), &status) != 0)
        throw std::system_error{errno, std::generic_category()};
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error{"it is not a file"};
    size_ = static_cast<std::uint64_t>(status.st_size);
}

std::size_t FileSource::read(std::span<char> target) {
    const auto most = static_cast<std::size_t>(std::min<std::uint64_t>(target.size(), size_ - at_));
    ssize_t count = 0;
    do {
        count = pread(file_.get(), target.data(), most, static_cast<off_t>(at_));
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        throw std::system_error{errno, std::generic_category()};
    at_ += static_cast<std::uint64_t>(count);
    return static_cast<std::size_t>(count);
}

std::size_t TextSource::read(std::span<char> target) {
    const std::size_t count = text_.copy(target.data(), target.size(), at_);
    at_ += count;
    return count;
}

}  // namespace tessaly::tessalyd::ftp
