#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tessaly::base {

/// Texts put aside, to be read back in the same order: first add(), then rewind(), then next(). What is more
/// than `mostInMemory` bytes lies in a file without a name in the temporary folder. Throws std::system_error
/// where that folder has no room.
class SpoolFile {
  public:
    explicit SpoolFile(std::size_t mostInMemory = std::size_t{64} << 10U) : most_(mostInMemory) {}

    /// Shorter than 4 GiB.
    void add(std::string_view text);
    /// Ends the adding. next() begins with the first text, the first time and each time after.
    void rewind();
    /// Reads the next text into `text`; false behind the last.
    [[nodiscard]] bool next(std::string& text);

  private:
    struct Close {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };

    void spill();
    [[nodiscard]] bool read(char* target, std::size_t size);

    std::size_t most_;
    std::vector<char> memory_;  // texts with their lengths before them; empty once all is in the file
    std::unique_ptr<std::FILE, Close> file_;
    std::size_t at_ = 0;  // in memory_
};

}  // namespace tessaly::base
