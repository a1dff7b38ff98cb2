#include "decoder/RunLength.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace tessaly::decoder {

namespace {

constexpr std::size_t HeaderSize = 64;  // the number of segments, and where each of up to 15 begins
constexpr std::size_t MostSegments = 15;
constexpr unsigned char Nothing = 0x80;  // a code that stands for no bytes

std::size_t number(Bytes bytes, std::size_t at) {
    return bytes[at] | std::size_t{bytes[at + 1]} << 8U | std::size_t{bytes[at + 2]} << 16U |
           std::size_t{bytes[at + 3]} << 24U;
}

/// True if the segment comes to exactly the target's bytes.
bool unpack(Bytes segment, std::span<unsigned char> target) {
    while (!target.empty()) {
        if (segment.empty())
            return false;
        const unsigned char code = segment[0];
        segment = segment.subspan(1);
        if (code == Nothing)
            continue;
        const bool isRun = code > Nothing;
        const std::size_t count = isRun ? 257U - code : code + 1U;
        const std::size_t needed = isRun ? 1 : count;
        if (count > target.size() || needed > segment.size())
            return false;
        if (isRun)
            std::memset(target.data(), segment[0], count);
        else
            std::memcpy(target.data(), segment.data(), count);
        segment = segment.subspan(needed);
        target = target.subspan(count);
    }
    // Encoders fill segments up to an even length, some to a longer one.
    return std::all_of(segment.begin(), segment.end(),
                       [](unsigned char byte) { return byte == 0 || byte == Nothing; });
}

}  // namespace

bool decodeRunLength(Bytes frame, const ImageDescription& image, std::span<unsigned char> target) {
    const std::size_t bytes = image.bitsAllocated / 8U;
    const std::size_t pixels = std::size_t{image.rows} * image.columns;
    const std::size_t segments = image.samplesPerPixel * bytes;
    if (segments == 0 || segments > MostSegments || target.size() != pixels * segments ||
        frame.size() < HeaderSize || number(frame, 0) != segments)
        return false;
    std::vector<unsigned char> plane(pixels);
    for (std::size_t i = 0; i < segments; ++i) {
        const std::size_t begin = number(frame, 4 + 4 * i);
        const std::size_t end = i + 1 < segments ? number(frame, 8 + 4 * i) : frame.size();
        if (begin < HeaderSize || end < begin || end > frame.size() ||
            !unpack(frame.subspan(begin, end - begin), plane))
            return false;
        // The most significant byte comes first.
        const std::size_t sample = i / bytes;
        const std::size_t byte = bytes - 1 - i % bytes;
        const bool byPlane = image.planarConfiguration == 1;
        const std::size_t step = byPlane ? bytes : segments;
        std::size_t at = (byPlane ? sample * pixels : sample) * bytes + byte;
        for (std::size_t pixel = 0; pixel < pixels; ++pixel, at += step)
            target[at] = plane[pixel];
    }
    return true;
}

}  // namespace tessaly::decoder
