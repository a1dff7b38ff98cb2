// Deflated data sets: their headers, and what a decoder is told of them.

#include <cstring>
#include <string>

#include "decoder/DeflatedLayout.h"
#include "dicom/data/Inflater.h"
#include "dicom/data/ObjectHeader.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using namespace tessaly::dicom;

constexpr std::size_t MostInflated = std::size_t{1} << 20U;

struct Inflated {
    std::string bytes;
    Inflater::State state = Inflater::State::Open;
};

Inflated inflated(std::string_view input, std::size_t piece) {
    Inflated all;
    Inflater inflater;
    const auto take = [&all](std::span<const char> part) {
        all.bytes.append(part.begin(), part.end());
        return all.bytes.size() > MostInflated;
    };
    for (; !input.empty(); input.remove_prefix(std::min(piece, input.size())))
        inflater.inflate(input.substr(0, piece), take);
    all.state = inflater.state();
    return all;
}

std::optional<std::string> instanceOf(std::string_view input, TransferSyntax syntax, std::size_t piece) {
    try {
        HeaderReader reader{syntax};
        for (; !input.empty() && !reader.isDone(); input.remove_prefix(std::min(piece, input.size())))
            reader.take(input.substr(0, piece));
        return reader.header().sopInstanceUid;
    } catch (const HeaderFault&) {
        return std::nullopt;
    }
}

}  // namespace

/// The first byte is the size of the pieces that the rest comes in.
void tessaly::fuzz::tryInput(std::string_view input) {
    if (input.empty())
        return;
    const std::size_t piece = 1U + static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    const Inflated whole = inflated(input, input.size());
    const Inflated parted = inflated(input, piece);
    if (whole.bytes.size() > MostInflated)
        return;
    require(whole.bytes == parted.bytes && whole.state == parted.state);
    // The header is the same as that of what is inflated, where that comes to its end.
    const TransferSyntax deflated{EXS_DeflatedLittleEndianExplicit};
    const auto instance = instanceOf(input, deflated, piece);
    require(instance == instanceOf(input, deflated, std::max<std::size_t>(1, input.size())));
    if (whole.state == Inflater::State::Ended)
        require(instance == instanceOf(whole.bytes, EXS_LittleEndianExplicit, 4096));
    const auto layout = decoder::readDeflatedLayout(
        [input](std::size_t offset, std::span<char> target) {
            std::memcpy(target.data(), input.data() + offset, target.size());
        },
        input.size());
    if (layout && instance)
        require(!layout->pixels || layout->pixels->end >= layout->pixels->valueAt);
}
