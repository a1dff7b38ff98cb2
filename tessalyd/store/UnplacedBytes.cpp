#include "tessalyd/store/UnplacedBytes.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <utility>

namespace tessaly::tessalyd {

UnplacedBytes::UnplacedBytes(std::vector<char>& memory, std::filesystem::path folder)
    : memory_(memory), folder_(std::move(folder)) {
    memory_.clear();
}

void UnplacedBytes::append(std::span<const char> bytes) {
    const std::size_t room = file_.isOpen() ? 0 : MostInMemory - std::min(MostInMemory, memory_.size());
    const auto head = bytes.first(std::min(room, bytes.size()));
    memory_.insert(memory_.end(), head.begin(), head.end());
    bytes = bytes.subspan(head.size());
    if (!bytes.empty() && !file_.isOpen())
        makeFile();
    while (!bytes.empty()) {
        const ssize_t written = ::write(file_.get(), bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            fail();
        if (written > 0) {
            inFile_ += static_cast<std::size_t>(written);
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        }
    }
}

void UnplacedBytes::moveTo(const std::function<void(std::span<const char>)>& target) {
    target(memory_);
    memory_.resize(MostInMemory / 4);
    for (std::size_t at = 0; at < inFile_;) {
        const ssize_t count = ::pread(file_.get(), memory_.data(), std::min(memory_.size(), inFile_ - at),
                                      static_cast<off_t>(at));
        if (count == 0)
            errno = EIO;
        if (count == 0 || (count < 0 && errno != EINTR))
            fail();
        if (count > 0) {
            target(std::span<const char>{memory_}.first(static_cast<std::size_t>(count)));
            at += static_cast<std::size_t>(count);
        }
    }
    memory_.clear();
    inFile_ = 0;
    file_.reset();
}

void UnplacedBytes::fail() const {
    throw std::system_error{errno, std::generic_category(), folder_.string()};
}

void UnplacedBytes::makeFile() {
    constexpr mode_t Mode = 0600;
    file_ = base::FileDescriptor{::open(folder_.c_str(), O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC, Mode)};
    if (file_.isOpen())
        return;
    if (errno != EOPNOTSUPP && errno != EISDIR)
        fail();
    // Network file systems have no files without a name: its name is taken away at once.
    std::string path = (folder_ / ".tessalyd-XXXXXX").string();
    file_ = base::FileDescriptor{::mkostemp(path.data(), O_CLOEXEC)};
    if (!file_.isOpen())
        fail();
    ::unlink(path.c_str());
}

}  // namespace tessaly::tessalyd
