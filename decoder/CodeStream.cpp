#include "decoder/CodeStream.h"

#include <algorithm>
#include <vector>

namespace tessaly::decoder {

namespace {

enum Marker : unsigned {
    StreamBegin = 0xff4f,
    Size = 0xff51,
    CodingStyle = 0xff52,
    TilePart = 0xff90,
    StreamEnd = 0xffd9,
};

constexpr std::size_t MarkerSize = 2;
constexpr std::size_t TilePartHeader = 12;  // the marker, its length, and what it says
constexpr std::size_t LeastTile = TilePartHeader + MarkerSize;

class Walk {
  public:
    explicit Walk(Bytes stream) : bytes_(stream) {}

    std::optional<CodeStream> read() {
        if (!has(2 * MarkerSize) || number(0, 2) != StreamBegin || number(MarkerSize, 2) != Size)
            return std::nullopt;
        at_ = MarkerSize;
        while (has(2 * MarkerSize) && number(at_, 2) != TilePart) {
            if (!takeSegment())
                return std::nullopt;
        }
        if (!hasSize_ || !hasStyle_ || !takeTileParts())
            return std::nullopt;
        return found_;
    }

  private:
    [[nodiscard]] bool has(std::size_t size) const {
        return at_ <= bytes_.size() && bytes_.size() - at_ >= size;
    }

    [[nodiscard]] std::uint32_t number(std::size_t at, std::size_t size) const {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < size; ++i)
            value = value << 8U | bytes_[at + i];
        return value;
    }

    /// A segment of the main header.
    bool takeSegment() {
        const unsigned marker = number(at_, 2);
        const std::size_t length = number(at_ + MarkerSize, 2);
        at_ += MarkerSize;
        if (marker < 0xff00 || length < MarkerSize || !has(length))
            return false;
        if (marker == Size && !takeSize(length))
            return false;
        if (marker == CodingStyle && !takeStyle(length))
            return false;
        at_ += length;
        return true;
    }

    bool takeSize(std::size_t length) {
        constexpr std::size_t Fixed = 38;
        constexpr std::size_t OfComponent = 3;
        if (hasSize_ || length < Fixed + OfComponent)
            return false;
        hasSize_ = true;
        const auto edge = [this](std::size_t index) { return std::uint64_t{number(at_ + 4 + 4 * index, 4)}; };
        const std::uint64_t right = edge(0);
        const std::uint64_t bottom = edge(1);
        const std::uint64_t tileWidth = edge(4);
        const std::uint64_t tileHeight = edge(5);
        // Anything else comes from no modality, and each part of it would need a look of its own.
        if (edge(2) != 0 || edge(3) != 0 || edge(6) != 0 || edge(7) != 0)
            return false;
        found_.columns = static_cast<std::uint32_t>(right);
        found_.rows = static_cast<std::uint32_t>(bottom);
        found_.components = number(at_ + 36, 2);
        if (right == 0 || bottom == 0 || tileWidth == 0 || tileHeight == 0 ||
            length != Fixed + OfComponent * found_.components)
            return false;
        const std::uint64_t tiles =
            ((right + tileWidth - 1) / tileWidth) * ((bottom + tileHeight - 1) / tileHeight);
        constexpr std::uint64_t MostTiles = 65535;
        if (tiles > std::min<std::uint64_t>(MostTiles, bytes_.size() / LeastTile))
            return false;
        tiles_.resize(static_cast<std::size_t>(tiles));
        return takeComponents(at_ + Fixed);
    }

    bool takeComponents(std::size_t at) {
        const unsigned sample = bytes_[at];
        constexpr unsigned Signed = 0x80;
        found_.isSigned = (sample & Signed) != 0;
        found_.precision = (sample & ~Signed) + 1;
        for (unsigned i = 0; i < found_.components; ++i, at += 3) {
            const bool isWhole = bytes_[at + 1] == 1 && bytes_[at + 2] == 1;
            if (bytes_[at] != sample || !isWhole)
                return false;
        }
        return true;
    }

    /// Each tile has a packet for each layer, resolution and component, and a packet has a byte at least:
    /// what promises more would keep the library counting.
    bool takeStyle(std::size_t length) {
        constexpr std::size_t Layers = 4;
        constexpr std::size_t Transform = 6;
        constexpr std::size_t Levels = 7;
        if (hasStyle_ || !hasSize_ || length <= Levels)
            return false;
        hasStyle_ = true;
        found_.hasColourTransform = bytes_[at_ + Transform] != 0;
        const std::uint64_t packets = std::uint64_t{number(at_ + Layers, 2)} * (bytes_[at_ + Levels] + 1U) *
                                      found_.components * tiles_.size();
        return packets <= bytes_.size();
    }

    bool takeTileParts() {
        std::size_t missing = tiles_.size();
        while (has(MarkerSize) && number(at_, 2) != StreamEnd) {
            if (!has(LeastTile) || number(at_, 2) != TilePart)
                return false;
            const std::size_t tile = number(at_ + 4, 2);
            std::size_t length = number(at_ + 6, 4);
            if (length == 0)  // the last one, to the stream's end
                length = lengthToEnd();
            if (tile >= tiles_.size() || length < LeastTile || !has(length))
                return false;
            missing -= tiles_[tile] ? 0 : 1;
            tiles_[tile] = true;
            at_ += length;
        }
        if (!has(MarkerSize) || missing > 0)
            return false;
        found_.size = at_ + MarkerSize;
        // What makes a length even is zero by the standard, and whatever was in memory with some encoders.
        const Bytes behind = bytes_.subspan(found_.size);
        return behind.size() == 1 ||
               std::all_of(behind.begin(), behind.end(), [](unsigned char byte) { return byte == 0; });
    }

    /// 0 if there is no end-of-codestream marker.
    [[nodiscard]] std::size_t lengthToEnd() const {
        const auto endsAt = [this](std::size_t end) {
            return end >= at_ + MarkerSize && number(end - MarkerSize, 2) == StreamEnd;
        };
        std::size_t end = bytes_.size();
        if (!endsAt(end) && endsAt(end - 1))
            return end - 1 - MarkerSize - at_;
        while (end > at_ && bytes_[end - 1] == 0)
            --end;
        return endsAt(end) ? end - MarkerSize - at_ : 0;
    }

    Bytes bytes_;
    std::size_t at_ = 0;
    bool hasSize_ = false;
    bool hasStyle_ = false;
    std::vector<bool> tiles_;
    CodeStream found_;
};

}  // namespace

std::optional<CodeStream> readCodeStream(Bytes stream) {
    return Walk{stream}.read();
}

}  // namespace tessaly::decoder
