#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

#include "base/FileDescriptor.h"

namespace tessaly::tessalyd::images {

/// A file without a name in a folder, gone with this. Its functions throw std::system_error.
class ScratchFile {
  public:
    explicit ScratchFile(const std::filesystem::path& folder);
    void write(std::uint64_t at, std::span<const char> bytes) const;
    void read(std::uint64_t at, std::span<char> target) const;
    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] int descriptor() const noexcept { return file_.get(); }

  private:
    base::FileDescriptor file_;
};

}  // namespace tessaly::tessalyd::images
