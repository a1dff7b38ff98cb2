#include "dicom/DataSetWalk.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <vector>

namespace tessaly::dicom {

namespace {

constexpr std::size_t DeepestSequence = 64;                // reports of real devices have a dozen
constexpr std::size_t DeepestLevel = 2 * DeepestSequence;  // each with an item

constexpr std::uint32_t Undefined = 0xffffffff;
constexpr std::size_t Unbounded = std::numeric_limits<std::size_t>::max();
constexpr std::uint16_t ItemGroup = 0xfffe;

/// What counts where lengths contradict each other.
enum class Lengths {
    Inner,     // as in the toolkit's parser
    Enclosing  // as in files that somebody wants to keep
};

/// Bytes that are not in memory.
class FarBytes {
  public:
    FarBytes(const std::function<char(std::size_t)>& byteAt, std::size_t size)
        : byteAt_(byteAt), size_(size) {}
    [[nodiscard]] char operator[](std::size_t index) const { return byteAt_(index); }
    [[nodiscard]] std::size_t size() const noexcept { return size_; }

  private:
    const std::function<char(std::size_t)>& byteAt_;
    std::size_t size_;
};

/// Steps from one element to the next, into the items of sequences; keeps the open ones in a list of its own.
template <class Bytes>
class Walk {
  public:
    Walk(Bytes data, E_TransferSyntax syntax, Lengths counts)
        : data_(data),
          counts_(counts),
          outermost_{.hasVrs = DcmXfer{syntax}.isExplicitVR() == OFTrue,
                     .littleEndian = DcmXfer{syntax}.getByteOrder() == EBO_LittleEndian} {}

    /// Goes on to the first element that is `end` or behind it; true when it gives up on the way, too deep.
    [[nodiscard]] bool isTooDeep(const DcmTagKey& end = DcmTagKey{0xffff, 0xffff}) {
        while (fits(HeaderSize)) {
            leaveEnded();
            const DcmTagKey tag = tagHere();
            if (levels_.empty() && tag >= end)
                return false;
            step(tag);
            if (levels_.size() > DeepestLevel)
                return true;
        }
        return false;
    }

    [[nodiscard]] bool wentBeyondTheData() const {
        const auto isBeyond = [this](const Level& level) {
            return level.end > data_.size() && level.end != Unbounded;
        };
        return at_ > data_.size() || endsInHeader_ || endsInTag() ||
               std::any_of(levels_.begin(), levels_.end(), isBeyond);
    }

  private:
    static constexpr std::size_t HeaderSize = 8;
    static constexpr std::size_t LongHeaderSize = 12;

    struct Encoding {
        bool hasVrs = false;  // elements name their value representations
        bool littleEndian = true;
    };
    struct Level {
        std::size_t end = Unbounded;
        bool hasLength = false;
        Encoding encoding;
        bool hasFragments = false;  // its items are pieces of pixel data
    };

    [[nodiscard]] bool fits(std::size_t size) const {
        return at_ <= data_.size() && data_.size() - at_ >= size;
    }
    /// Less than a header is left. Some devices fill their data sets up with zeros.
    [[nodiscard]] bool endsInTag() const {
        bool isFilling = true;
        for (std::size_t i = at_; !fits(HeaderSize) && i < data_.size(); ++i)
            isFilling = isFilling && data_[i] == '\0';
        return !isFilling;
    }
    [[nodiscard]] std::uint32_t number(std::size_t offset, std::size_t size) const {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            const std::size_t byte = encoding().littleEndian ? size - 1 - i : i;
            value = value << 8U | static_cast<unsigned char>(data_[at_ + offset + byte]);
        }
        return value;
    }
    [[nodiscard]] DcmTagKey tagHere() const {
        return {static_cast<Uint16>(number(0, 2)), static_cast<Uint16>(number(2, 2))};
    }
    [[nodiscard]] Encoding encoding() const { return levels_.empty() ? outermost_ : levels_.back().encoding; }

    /// What nothing here reaches beyond, whatever its own length says.
    [[nodiscard]] std::size_t bound() const {
        return levels_.empty() || counts_ == Lengths::Inner ? Unbounded : levels_.back().end;
    }

    void leaveEnded() {
        while (!levels_.empty() && levels_.back().end <= at_)
            levels_.pop_back();
    }

    void enter(std::uint32_t length, Encoding encoding, bool hasFragments, bool isKnown = true) {
        const bool hasLength = length != Undefined;
        const std::size_t unending = isKnown ? Unbounded : data_.size();  // some devices encode it otherwise
        levels_.push_back({.end = std::min(bound(), hasLength ? at_ + length : unending),
                           .hasLength = hasLength,
                           .encoding = encoding,
                           .hasFragments = hasFragments});
    }

    void pass(std::uint32_t length) { at_ = std::min(bound(), at_ + length); }

    void step(const DcmTagKey& tag) {
        if (tag.getGroup() == ItemGroup)
            stepItem(tag);
        else
            stepElement(tag);
    }

    void stepItem(const DcmTagKey& tag) {
        const std::uint32_t length = number(4, 4);
        at_ += HeaderSize;
        const bool fragment = !levels_.empty() && levels_.back().hasFragments;
        if (tag != DCM_Item) {
            if (!levels_.empty() && !levels_.back().hasLength)
                levels_.pop_back();
        } else if (fragment) {
            pass(length);
        } else {
            enter(length, encoding(), false);
        }
    }

    void stepElement(const DcmTagKey& tag) {
        Encoding inside = encoding();
        bool isKnown = true;
        bool mayHaveFragments = tag == DCM_PixelData;
        std::uint32_t length = 0;
        if (inside.hasVrs) {
            const std::array name{data_[at_ + 4], data_[at_ + 5], '\0'};
            const DcmVR vr{name.data()};
            const bool isLong = vr.usesExtendedLengthEncoding();
            if (isLong && !fits(LongHeaderSize)) {
                at_ = data_.size();
                endsInHeader_ = true;
                return;
            }
            length = isLong ? number(8, 4) : number(6, 2);
            at_ += isLong ? LongHeaderSize : HeaderSize;
            isKnown = vr.getEVR() != EVR_UN;
            if (!isKnown)
                inside = {};  // it comes as in the default syntax
            mayHaveFragments = mayHaveFragments && isKnown && vr.getEVR() != EVR_SQ;
        } else {
            length = number(4, 4);
            at_ += HeaderSize;
        }
        if (length == Undefined)
            enter(length, inside, mayHaveFragments, isKnown);
        else if (length >= HeaderSize && fits(HeaderSize) && tagHere() == DCM_Item)
            enter(length, inside, false);
        else
            pass(length);
    }

    Bytes data_;
    Lengths counts_;
    Encoding outermost_;
    std::size_t at_ = 0;
    bool endsInHeader_ = false;
    std::vector<Level> levels_;
};

}  // namespace

bool nestsTooDeep(std::span<const char> dataSet, E_TransferSyntax syntax, const DcmTagKey& end) {
    return Walk{dataSet, syntax, Lengths::Inner}.isTooDeep(end);
}

bool isCutOff(std::span<const char> dataSet, E_TransferSyntax syntax) {
    Walk walk{dataSet, syntax, Lengths::Enclosing};
    return !walk.isTooDeep() && walk.wentBeyondTheData();
}

bool isCutOff(const std::function<char(std::size_t)>& byteAt, std::size_t size, E_TransferSyntax syntax) {
    Walk walk{FarBytes{byteAt, size}, syntax, Lengths::Enclosing};
    return !walk.isTooDeep() && walk.wentBeyondTheData();
}

}  // namespace tessaly::dicom
