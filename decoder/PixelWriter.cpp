#include "decoder/PixelWriter.h"

#include <algorithm>
#include <array>

namespace tessaly::decoder {

namespace {

constexpr unsigned Byte = 8;

}  // namespace

void PixelWriter::add(Bytes frame) {
    if (frameBits_ % Byte == 0)
        put(frame);
    else
        join(frame);
}

void PixelWriter::join(Bytes frame) {
    joined_.clear();
    std::uint64_t left = frameBits_;
    for (const unsigned char byte : frame) {
        const auto count = static_cast<unsigned>(std::min<std::uint64_t>(left, Byte));
        bits_ |= (byte & ((1U << count) - 1)) << bitCount_;
        bitCount_ += count;
        left -= count;
        if (bitCount_ >= Byte) {
            joined_.push_back(static_cast<unsigned char>(bits_));
            bits_ >>= Byte;
            bitCount_ -= Byte;
        }
    }
    put(joined_);
}

void PixelWriter::finish() {
    if (bitCount_ > 0)
        put(std::array{static_cast<unsigned char>(bits_)});
    bitCount_ = 0;
    if (hasHalf_)
        put(std::array<unsigned char, 1>{0});
}

void PixelWriter::put(Bytes bytes) {
    if (swaps_)
        return putSwapped(bytes);
    write_(bytes);
    hasHalf_ = hasHalf_ != (bytes.size() % 2 != 0);
}

void PixelWriter::putSwapped(Bytes bytes) {
    if (hasHalf_ && !bytes.empty()) {
        write_(std::array{bytes.front(), half_});
        bytes = bytes.subspan(1);
        hasHalf_ = false;
    }
    std::array<unsigned char, 1U << 16U> swapped;
    while (bytes.size() > 1) {
        const Bytes part = bytes.first(std::min(bytes.size() - bytes.size() % 2, swapped.size()));
        for (std::size_t i = 0; i < part.size(); ++i)
            swapped[i] = part[i ^ 1U];
        write_(Bytes{swapped}.first(part.size()));
        bytes = bytes.subspan(part.size());
    }
    if (!bytes.empty()) {
        half_ = bytes.front();
        hasHalf_ = true;
    }
}

}  // namespace tessaly::decoder
