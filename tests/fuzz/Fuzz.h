#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

// What the fuzz targets share. Each defines tryInput() and is one program: it makes inputs up for as long as
// it is told, and ends at the first that breaks what must hold, with the input in a file.

namespace tessaly::fuzz {

void tryInput(std::string_view input);

inline void require(bool holds) {
    if (!holds)
        std::abort();
}

/// Takes the input's beginning up to a zero byte, which is skipped, or all of it.
inline std::string takePart(std::string_view& input) {
    const auto length = std::min(input.find('\0'), input.size());
    std::string part{input.substr(0, length)};
    input.remove_prefix(std::min(length + 1, input.size()));
    return part;
}

}  // namespace tessaly::fuzz

extern "C" inline __attribute__((used)) int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                                                   std::size_t size) {
    tessaly::fuzz::tryInput({reinterpret_cast<const char*>(data), size});
    return 0;
}
