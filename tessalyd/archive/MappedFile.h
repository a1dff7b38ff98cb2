#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <span>
#include <system_error>

#include "tessalyd/FileDescriptor.h"

namespace tessaly::tessalyd {

/// The bytes of a file that is not empty and that nobody shortens meanwhile.
class MappedFile {
  public:
    /// Throws std::system_error.
    explicit MappedFile(const std::filesystem::path& path) {
        const FileDescriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
        struct stat found {};
        if (!file.isOpen() || ::fstat(file.get(), &found) < 0)
            throw std::system_error{errno, std::generic_category(), path.string()};
        size_ = static_cast<std::size_t>(found.st_size);
        begin_ = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, file.get(), 0);
        if (begin_ == MAP_FAILED)
            throw std::system_error{errno, std::generic_category(), path.string()};
    }
    ~MappedFile() { ::munmap(begin_, size_); }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    [[nodiscard]] std::span<const char> bytes() const noexcept {
        return {static_cast<const char*>(begin_), size_};
    }

  private:
    void* begin_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace tessaly::tessalyd
