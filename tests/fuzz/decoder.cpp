// What the decoder's process does with an object, in this one.

#include <array>
#include <cstring>
#include <vector>

#include "decoder/FrameDecoder.h"
#include "decoder/ObjectLayout.h"
#include "decoder/Transcoder.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using namespace tessaly::decoder;
using namespace std::string_view_literals;
using tessaly::dicom::TransferSyntax;

std::optional<ObjectLayout> layoutOf(Bytes bytes, tessaly::dicom::TransferSyntax syntax) {
    tessaly::dicom::FileWindow window{bytes.size(), [bytes](std::size_t offset, std::span<char> target) {
                                          std::memcpy(target.data(), bytes.data() + offset, target.size());
                                      }};
    return readLayout(window, bytes.size(), syntax);
}

/// Beyond it a decoder takes what it may, and this one has no limits.
constexpr std::uint64_t MostPixels = std::uint64_t{4} << 20U;

}  // namespace

/// The first byte chooses the transfer syntaxes.
void tessaly::fuzz::tryInput(std::string_view input) {
    static const bool ready = [] {
        registerCodecs();
        return true;
    }();
    require(ready);
    if (input.empty())
        return;
    constexpr std::array From{EXS_JPEGProcess1,      EXS_JPEGProcess2_4,      EXS_JPEGProcess14SV1,
                              EXS_JPEGLSLossless,    EXS_RLELossless,         EXS_LittleEndianImplicit,
                              EXS_BigEndianExplicit, EXS_LittleEndianExplicit};
    constexpr std::array To{EXS_LittleEndianExplicit, EXS_LittleEndianImplicit, EXS_BigEndianExplicit};
    const auto choice = static_cast<unsigned char>(input.front());
    // In the upper half, those that the toolkit does not decode; JPEG 2000 has a target of its own.
    static const std::array Further{TransferSyntax{"1.2.840.10008.1.2.1.98"sv},
                                    TransferSyntax{"1.2.840.10008.1.2.8.1"sv},
                                    TransferSyntax{EXS_DeflatedLittleEndianExplicit}};
    constexpr unsigned Half = 128;
    const TransferSyntax from =
        choice < Half ? TransferSyntax{From[choice % From.size()]} : Further[choice % Further.size()];
    const TransferSyntax to{To[choice / From.size() % To.size()]};
    input.remove_prefix(1);
    const Bytes object{reinterpret_cast<const unsigned char*>(input.data()), input.size()};
    const auto layout = from.isDeflated() ? std::nullopt : layoutOf(object, from);
    const bool isEncapsulated = layout && layout->pixels && layout->pixels->isEncapsulated;
    if (isEncapsulated && layout->image.size().value_or(0) > MostPixels)
        return;
    std::vector<unsigned char> made;
    if (!convert(object, from, to,
                 [&made](Bytes part) { made.insert(made.end(), part.begin(), part.end()); }))
        return;
    require(layout.has_value() || from.isDeflated());
    if (!isEncapsulated)
        return;
    const auto result = layoutOf(made, to);
    const std::uint64_t size = layout->image.size().value();
    require(result && result->pixels && !result->pixels->isEncapsulated &&
            result->pixels->end - result->pixels->valueAt == size + size % 2);
}
