// JPEG 2000 code streams, one frame each.

#include <vector>

#include "decoder/CodeStream.h"
#include "decoder/FrameDecoder.h"
#include "tests/fuzz/Fuzz.h"

/// The first byte says what the image is.
void tessaly::fuzz::tryInput(std::string_view input) {
    using namespace tessaly::decoder;
    if (input.empty())
        return;
    const auto choice = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    const Bytes stream{reinterpret_cast<const unsigned char*>(input.data()), input.size()};
    const auto described = readCodeStream(stream);
    // Beyond it a decoder takes what it may, and this one has no limits.
    constexpr std::uint32_t Most = 256;
    if (!described || described->rows > Most || described->columns > Most)
        return;
    require(described->size <= stream.size() && described->components > 0);
    ImageDescription image{.rows = static_cast<std::uint16_t>(described->rows),
                           .columns = static_cast<std::uint16_t>(described->columns),
                           .samplesPerPixel = static_cast<std::uint16_t>(described->components)};
    image.bitsAllocated = (choice & 1U) != 0 ? 16 : 8;
    image.bitsStored = image.bitsAllocated;
    image.pixelRepresentation = (choice & 2U) != 0 ? 1 : 0;
    image.photometric = (choice & 4U) != 0 ? "YBR_FULL" : (choice & 8U) != 0 ? "YBR_RCT" : "RGB";
    FrameDecoder decoder{image, EXS_JPEG2000, "1.2.3"};
    std::vector<unsigned char> target;
    if (decoder.decode(std::vector{stream}, target))
        require(target.size() == image.frameSize());
}
