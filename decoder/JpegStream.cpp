#include "decoder/JpegStream.h"

#include <algorithm>
#include <cstring>

namespace tessaly::decoder {

namespace {

enum Marker : unsigned char {
    Sof0 = 0xc0,
    Sof3 = 0xc3,
    HuffmanTable = 0xc4,
    Arithmetic = 0xc8,
    ArithmeticTable = 0xcc,
    SofLast = 0xcf,
    Restart0 = 0xd0,
    Restart7 = 0xd7,
    ImageBegin = 0xd8,
    ImageEnd = 0xd9,
    ScanBegin = 0xda,
    LineCount = 0xdc,
    Hierarchical = 0xde,
    Expansion = 0xdf,
    SofLs = 0xf7,
    Temporary = 0x01
};

class Walk {
  public:
    Walk(Bytes stream, Coding coding) : bytes_(stream), coding_(coding) {}

    std::optional<JpegStream> read() {
        if (bytes_.size() < 4 || bytes_[0] != 0xff || bytes_[1] != ImageBegin)
            return std::nullopt;
        at_ = 2;
        for (;;) {
            const auto marker = takeMarker();
            if (!marker)
                return std::nullopt;
            if (*marker == ImageEnd)
                return atEnd();
            if (!takeSegment(*marker))
                return std::nullopt;
        }
    }

  private:
    /// Any number of fill bytes may be before a marker.
    std::optional<unsigned char> takeMarker() {
        const std::size_t begin = at_;
        while (at_ < bytes_.size() && bytes_[at_] == 0xff)
            ++at_;
        if (at_ == begin || at_ == bytes_.size())
            return std::nullopt;
        return bytes_[at_++];
    }

    [[nodiscard]] bool isFrame(unsigned char marker) const {
        return coding_ == Coding::JpegLs ? marker == SofLs : marker >= Sof0 && marker <= Sof3;
    }

    /// Other codings, and what changes the size that was said.
    [[nodiscard]] bool isRefused(unsigned char marker) const {
        const bool isAnySof = (marker >= Sof0 && marker <= SofLast && marker != HuffmanTable &&
                               marker != ArithmeticTable && marker != Arithmetic) ||
                              marker == SofLs;
        const bool hasNoLength = marker == 0 || marker == Temporary ||
                                 (marker >= Restart0 && marker <= Restart7) || marker == ImageBegin;
        return hasNoLength || (isAnySof && !isFrame(marker)) || marker == Arithmetic ||
               marker == ArithmeticTable || marker == LineCount || marker == Hierarchical ||
               marker == Expansion;
    }

    [[nodiscard]] unsigned number(std::size_t at) const {
        return static_cast<unsigned>(bytes_[at]) << 8U | bytes_[at + 1];
    }

    bool takeSegment(unsigned char marker) {
        if (isRefused(marker) || bytes_.size() - at_ < 2)
            return false;
        const std::size_t length = number(at_);
        if (length < 2 || length > bytes_.size() - at_)
            return false;
        if (isFrame(marker) && !takeFrame(length))
            return false;
        at_ += length;
        if (marker != ScanBegin)
            return true;
        hasScan_ = hasFrame_;
        passScan();
        return hasScan_;
    }

    bool takeFrame(std::size_t length) {
        constexpr std::size_t Fixed = 8;
        constexpr std::size_t OfComponent = 3;
        if (hasFrame_ || length < Fixed)
            return false;
        hasFrame_ = true;
        found_.precision = bytes_[at_ + 2];
        found_.rows = number(at_ + 3);
        found_.columns = number(at_ + 5);
        found_.components = bytes_[at_ + 7];
        return length == Fixed + OfComponent * found_.components;
    }

    /// To the first marker that is none of the scan's own.
    void passScan() {
        while (at_ + 1 < bytes_.size()) {
            const auto* const begin = bytes_.data() + at_;
            const void* const found = std::memchr(begin, 0xff, bytes_.size() - at_ - 1);
            if (found == nullptr)
                break;
            at_ += static_cast<std::size_t>(static_cast<const unsigned char*>(found) - begin);
            const unsigned char next = bytes_[at_ + 1];
            const bool isData = coding_ == Coding::JpegLs ? next < 0x80 : next == 0;
            if (!isData && !(next >= Restart0 && next <= Restart7) && next != 0xff)
                return;
            at_ += next == 0xff ? 1 : 2;
        }
        at_ = bytes_.size();
    }

    [[nodiscard]] std::optional<JpegStream> atEnd() {
        found_.size = at_;
        // What makes a length even is zero by the standard, and whatever was in memory with some encoders.
        const Bytes behind = bytes_.subspan(at_);
        const bool isFilling =
            behind.size() == 1 ||
            std::all_of(behind.begin(), behind.end(), [](unsigned char byte) { return byte == 0; });
        return hasScan_ && isFilling ? std::optional{found_} : std::nullopt;
    }

    Bytes bytes_;
    Coding coding_;
    std::size_t at_ = 0;
    bool hasFrame_ = false;
    bool hasScan_ = false;
    JpegStream found_;
};

}  // namespace

std::optional<JpegStream> readJpegStream(Bytes stream, Coding coding) {
    return Walk{stream, coding}.read();
}

}  // namespace tessaly::decoder
