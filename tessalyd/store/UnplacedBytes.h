#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>
#include <vector>

#include "base/FileDescriptor.h"

namespace tessaly::tessalyd {

/// The beginning of an object whose folder is not known yet: in memory as far as most objects need, then in a
/// file without a name, which ends with this. Throws std::system_error where that file fails.
class UnplacedBytes {
  public:
    static constexpr std::size_t MostInMemory = std::size_t{1} << 20U;

    /// `memory` is working space; `folder` is where the file is made, once there has to be one.
    UnplacedBytes(std::vector<char>& memory, std::filesystem::path folder);

    void append(std::span<const char> bytes);
    [[nodiscard]] std::size_t size() const noexcept { return memory_.size() + inFile_; }
    /// Hands all bytes to `target`, block by block, and forgets them.
    void moveTo(const std::function<void(std::span<const char>)>& target);

  private:
    [[noreturn]] void fail() const;
    void makeFile();

    std::vector<char>& memory_;
    std::filesystem::path folder_;
    base::FileDescriptor file_;
    std::size_t inFile_ = 0;
};

}  // namespace tessaly::tessalyd
