#include "decoder/Colours.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tessaly::decoder {

void toRgb(std::span<unsigned char> pixels, std::size_t bytes, unsigned bits) {
    constexpr std::size_t Samples = 3;
    const auto most = static_cast<double>((1U << bits) - 1);
    const auto middle = static_cast<double>(1U << (bits - 1));
    for (; pixels.size() >= Samples * bytes; pixels = pixels.subspan(Samples * bytes)) {
        std::array<double, Samples> read{};
        for (std::size_t i = 0; i < Samples; ++i) {
            const unsigned high = bytes == 2 ? pixels[i * bytes + 1] : 0U;
            read[i] = pixels[i * bytes] | high << 8U;
        }
        const double blue = read[1] - middle;
        const double red = read[2] - middle;
        const std::array<double, Samples> made{
            read[0] + 1.402 * red, read[0] - 0.344136 * blue - 0.714136 * red, read[0] + 1.772 * blue};
        for (std::size_t i = 0; i < Samples; ++i) {
            const auto value = static_cast<unsigned>(std::lround(std::clamp(made[i], 0.0, most)));
            pixels[i * bytes] = static_cast<unsigned char>(value);
            if (bytes == 2)
                pixels[i * bytes + 1] = static_cast<unsigned char>(value >> 8U);
        }
    }
}

}  // namespace tessaly::decoder
