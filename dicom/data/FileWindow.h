#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <utility>

namespace tessaly::dicom {

/// A file's bytes for whoever steps through them: a window that follows. The file is read and not mapped: a
/// disk that fails is a fault to be thrown then, and no signal that ends the server.
class FileWindow {
  public:
    using ReadAt = std::function<void(std::size_t offset, std::span<char> target)>;

    /// `readAt` is called for bytes below `size` alone; what it throws comes through.
    FileWindow(std::size_t size, ReadAt readAt) : size_(size), readAt_(std::move(readAt)) {}

    [[nodiscard]] char at(std::size_t index) {
        if (index < begin_ || index >= begin_ + filled_) {
            filled_ = 0;
            const std::size_t part = std::min(bytes_.size(), size_ - index);
            readAt_(index, std::span{bytes_}.first(part));
            begin_ = index;
            filled_ = part;
        }
        return bytes_[index - begin_];
    }

  private:
    std::size_t size_;
    ReadAt readAt_;
    std::array<char, 4096> bytes_{};
    std::size_t begin_ = 0;
    std::size_t filled_ = 0;
};

}  // namespace tessaly::dicom
