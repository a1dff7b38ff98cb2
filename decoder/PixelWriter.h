#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "decoder/Fragments.h"

namespace tessaly::decoder {

/// Takes the next bytes of what is made. What it throws comes through.
using Write = std::function<void(Bytes)>;

/// Writes the frames of native pixel data one behind the other. Frames whose bits do not fill their last byte
/// share it with the next.
class PixelWriter {
  public:
    /// `swaps` says that the two bytes of each word change places.
    PixelWriter(const Write& write, std::uint64_t frameBits, bool swaps)
        : write_(write), frameBits_(frameBits), swaps_(swaps) {}

    void add(Bytes frame);
    /// Writes what is left, and a byte more where the length would be odd.
    void finish();

  private:
    void join(Bytes frame);
    void put(Bytes bytes);
    void putSwapped(Bytes bytes);

    const Write& write_;
    std::uint64_t frameBits_;
    bool swaps_;
    std::vector<unsigned char> joined_;
    std::uint32_t bits_ = 0;  // that do not fill a byte yet, the first of them lowest
    unsigned bitCount_ = 0;
    bool hasHalf_ = false;  // of a word: so many bytes came that one is left
    unsigned char half_ = 0;
};

}  // namespace tessaly::decoder
