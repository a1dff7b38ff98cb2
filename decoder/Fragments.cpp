#include "decoder/Fragments.h"

#include <cstddef>

namespace tessaly::decoder {

namespace {

constexpr std::size_t HeaderSize = 8;
constexpr std::size_t OffsetSize = 4;
constexpr std::size_t ExtendedOffsetSize = 8;

std::uint32_t number(Bytes bytes, std::size_t at) {
    return static_cast<std::uint32_t>(bytes[at]) | static_cast<std::uint32_t>(bytes[at + 1]) << 8U |
           static_cast<std::uint32_t>(bytes[at + 2]) << 16U |
           static_cast<std::uint32_t>(bytes[at + 3]) << 24U;
}

std::uint64_t offsetAt(Bytes table, std::size_t index, std::size_t size) {
    const std::size_t at = index * size;
    const std::uint64_t high = size == ExtendedOffsetSize ? number(table, at + OffsetSize) : 0;
    return high << 32U | number(table, at);
}

bool isItem(Bytes header) {
    return header[0] == 0xfe && header[1] == 0xff && header[2] == 0x00 && header[3] == 0xe0;
}

bool isEnd(Bytes header) {
    return header[0] == 0xfe && header[1] == 0xff && header[2] == 0xdd && header[3] == 0xe0;
}

/// The first fragment of each frame, by an offset table that names each once and in order.
std::optional<std::vector<std::size_t>> beginsByTable(const Fragments& fragments, Bytes table,
                                                      std::size_t offsetSize, std::uint64_t frames) {
    if (table.size() / offsetSize != frames)
        return std::nullopt;
    std::vector<std::size_t> begins;
    std::uint64_t offset = 0;
    for (std::size_t i = 0; i < fragments.parts.size(); ++i) {
        if (begins.size() < frames && offsetAt(table, begins.size(), offsetSize) == offset)
            begins.push_back(i);
        offset += HeaderSize + fragments.parts[i].size();
    }
    if (begins.size() != frames || begins.front() != 0)
        return std::nullopt;
    return begins;
}

/// The markers of a JPEG image and of a JPEG 2000 code stream.
bool beginsStream(Bytes part) {
    return part.size() > 2 && part[0] == 0xff && (part[1] == 0xd8 || part[1] == 0x4f) && part[2] == 0xff;
}

/// An end-of-image marker, and what makes the length even, if any: one byte, or zeros.
bool endsStream(Bytes part) {
    const auto hasMarkerAtEnd = [](Bytes bytes) {
        return bytes.size() >= 2 && bytes[bytes.size() - 2] == 0xff && bytes.back() == 0xd9;
    };
    if (part.size() > 2 && hasMarkerAtEnd(part.first(part.size() - 1)))
        return true;
    while (part.size() > 2 && part.back() == 0)
        part = part.first(part.size() - 1);
    return hasMarkerAtEnd(part);
}

std::optional<std::vector<std::size_t>> beginsByMarkers(const Fragments& fragments, std::uint64_t frames) {
    std::vector<std::size_t> begins;
    for (std::size_t i = 0; i < fragments.parts.size(); ++i) {
        if (i == 0 || (beginsStream(fragments.parts[i]) && endsStream(fragments.parts[i - 1])))
            begins.push_back(i);
    }
    if (begins.size() != frames)
        return std::nullopt;
    return begins;
}

}  // namespace

std::optional<Fragments> readFragments(Bytes value) {
    Fragments fragments;
    for (bool first = true;; first = false) {
        if (value.size() < HeaderSize)
            return std::nullopt;
        const std::uint32_t length = number(value, 4);
        if (isEnd(value))
            return first ? std::nullopt : std::optional{std::move(fragments)};
        if (!isItem(value) || length > value.size() - HeaderSize)
            return std::nullopt;
        const Bytes content = value.subspan(HeaderSize, length);
        if (first)
            fragments.offsetTable = content;
        else
            fragments.parts.push_back(content);
        value = value.subspan(HeaderSize + length);
    }
}

std::optional<std::vector<Frame>> splitFrames(const Fragments& fragments, std::uint64_t frames,
                                              bool streamsEnd) {
    const std::size_t count = fragments.parts.size();
    if (frames == 0 || count < frames)
        return std::nullopt;
    const Frame all{fragments.parts};
    std::vector<Frame> split;
    if (frames == 1)
        return std::vector{all};
    if (count == frames) {
        for (std::size_t i = 0; i < count; ++i)
            split.push_back(all.subspan(i, 1));
        return split;
    }
    auto begins = beginsByTable(fragments, fragments.offsetTable, OffsetSize, frames);
    if (!begins)
        begins = beginsByTable(fragments, fragments.extendedOffsets, ExtendedOffsetSize, frames);
    if (!begins && streamsEnd)
        begins = beginsByMarkers(fragments, frames);
    if (!begins)
        return std::nullopt;
    for (std::size_t i = 0; i < begins->size(); ++i) {
        const std::size_t begin = (*begins)[i];
        const std::size_t end = i + 1 < begins->size() ? (*begins)[i + 1] : count;
        split.push_back(all.subspan(begin, end - begin));
    }
    return split;
}

}  // namespace tessaly::decoder
