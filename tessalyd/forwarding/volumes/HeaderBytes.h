#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "tessalyd/forwarding/volumes/StagedPixels.h"

namespace tessaly::tessalyd::volumes {

/// The 348 bytes that both formats begin with, in little endian. What is not put is 0.
class HeaderBytes {
  public:
    static constexpr std::size_t Size = 348;

    HeaderBytes() {
        put(0, std::int32_t{Size});
        put(38, 'r');
    }

    template <class Value>
    requires std::integral<Value> || std::floating_point<Value>
    void put(std::size_t at, Value value) { std::memcpy(bytes_.data() + at, &value, sizeof value); }

    /// Dimensions, data type and bits a voxel; distances in mm, the time apart in seconds.
    void describe(const std::array<std::size_t, 3>& size, std::size_t times, std::int16_t type,
                  unsigned bytes) {
        put(40, static_cast<std::int16_t>(times > 1 ? 4 : 3));
        for (std::size_t a = 0; a < 7; ++a)
            put(42 + 2 * a, static_cast<std::int16_t>(a < size.size()    ? size[a]
                                                      : a == size.size() ? times
                                                                         : std::size_t{1}));
        put(70, type);
        put(72, static_cast<std::int16_t>(8 * bytes));
    }
    void measure(const std::array<double, 3>& distances, double seconds) {
        for (std::size_t a = 0; a < distances.size(); ++a)
            put(80 + 4 * a, static_cast<float>(distances[a]));
        put(92, static_cast<float>(seconds));
    }

    [[nodiscard]] std::span<const char> bytes() const noexcept { return bytes_; }

  private:
    std::array<char, Size> bytes_{};
};

/// Codes of data types that both formats have.
constexpr std::int16_t TypeUint8 = 2;
constexpr std::int16_t TypeInt16 = 4;
constexpr std::int16_t TypeInt32 = 8;
constexpr std::int16_t TypeFloat32 = 16;

}  // namespace tessaly::tessalyd::volumes
