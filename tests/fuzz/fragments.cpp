// The fragments of pixel data, and the tables that say which frame they belong to.

#include <algorithm>

#include "decoder/Fragments.h"
#include "tests/fuzz/Fuzz.h"

/// The first byte is the number of frames and whether streams end, the second the length of an extended
/// offset table, which comes before the fragments.
void tessaly::fuzz::tryInput(std::string_view input) {
    using namespace tessaly::decoder;
    if (input.size() < 2)
        return;
    const auto first = static_cast<unsigned char>(input[0]);
    const std::size_t tableSize = static_cast<unsigned char>(input[1]);
    input.remove_prefix(2);
    const Bytes bytes{reinterpret_cast<const unsigned char*>(input.data()), input.size()};
    const Bytes table = bytes.first(std::min(tableSize, bytes.size()));
    auto fragments = readFragments(bytes.subspan(table.size()));
    if (!fragments)
        return;
    fragments->extendedOffsets = table;
    const std::uint64_t count = first >> 1U;
    const auto frames = splitFrames(*fragments, count, (first & 1U) != 0);
    if (!frames)
        return;
    // Every fragment belongs to one frame, in order, and every frame has one.
    require(frames->size() == count);
    const Bytes* next = fragments->parts.data();
    for (const Frame frame : *frames) {
        require(!frame.empty() && frame.data() == next);
        next += frame.size();
    }
    require(next == fragments->parts.data() + fragments->parts.size());
}
