#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/FileDescriptor.h"

namespace tessaly::tessalyd::ftp {

/// The bytes of a file to be uploaded, given from the first on; a new attempt begins anew.
class Source {
  public:
    virtual ~Source() = default;
    [[nodiscard]] virtual std::uint64_t size() const noexcept = 0;
    virtual void rewind() noexcept = 0;
    /// Gives the next bytes; 0 behind the last. Throws std::system_error.
    [[nodiscard]] virtual std::size_t read(std::span<char> target) = 0;
};

/// A local file, as large as it is now. Throws std::system_error, and std::runtime_error for what is no
/// regular file.
class FileSource final : public Source {
  public:
    explicit FileSource(base::FileDescriptor file);

    [[nodiscard]] std::uint64_t size() const noexcept override { return size_; }
    void rewind() noexcept override { at_ = 0; }
    [[nodiscard]] std::size_t read(std::span<char> target) override;

  private:
    base::FileDescriptor file_;
    std::uint64_t size_ = 0;
    std::uint64_t at_ = 0;
};

/// A text, which outlives it.
class TextSource final : public Source {
  public:
    explicit TextSource(std::string_view text) : text_(text) {}

    [[nodiscard]] std::uint64_t size() const noexcept override { return text_.size(); }
    void rewind() noexcept override { at_ = 0; }
    [[nodiscard]] std::size_t read(std::span<char> target) override;

  private:
    std::string_view text_;
    std::size_t at_ = 0;
};

}  // namespace tessaly::tessalyd::ftp
