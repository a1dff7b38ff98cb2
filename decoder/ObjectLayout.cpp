#include "decoder/ObjectLayout.h"

#include <dcmtk/dcmdata/dcvr.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>
#include <vector>

namespace tessaly::decoder {

namespace {

using dicom::FileWindow;

constexpr std::uint32_t Undefined = 0xffffffff;
constexpr std::size_t HeaderSize = 8;
constexpr std::size_t LongHeaderSize = 12;
constexpr std::size_t DeepestLevel = 128;  // a sequence and its item are two
constexpr std::size_t LongestText = 128;

constexpr std::uint32_t Item = 0xfffee000;
constexpr std::uint32_t SequenceEnd = 0xfffee0dd;
constexpr std::uint32_t ItemGroup = 0xfffe;
constexpr std::uint32_t PixelData = 0x7fe00010;

struct CutOff {};       // a header or a value is there in part
struct NotReadable {};  // what is there contradicts itself, or is nested too deeply

class LayoutReader {
  public:
    LayoutReader(FileWindow& bytes, std::size_t size, dicom::TransferSyntax syntax)
        : bytes_(bytes),
          size_(size),
          outermost_{.hasVrs = syntax.hasVrs(), .littleEndian = syntax.isLittleEndian()} {}

    ObjectLayout read() {
        while (!isAtEnd()) {
            const std::uint32_t tag = tagAt(at_);
            ++layout_.elements;
            if (tag >> 16U == ItemGroup)
                stepItem(tag);
            else
                stepElement(tag);
            if (levels_.size() > DeepestLevel)
                throw NotReadable{};
        }
        layout_.end = at_;
        return std::move(layout_);
    }

  private:
    struct Encoding {
        bool hasVrs = false;
        bool littleEndian = true;
    };
    struct Level {
        std::size_t end = 0;
        bool hasLength = false;
        Encoding encoding;
        bool hasFragments = false;
    };
    struct Header {
        std::array<char, 2> vr{};
        std::uint32_t length = 0;
        std::size_t valueAt = 0;
    };

    [[nodiscard]] bool isAtEnd() {
        while (!levels_.empty() && levels_.back().end <= at_)
            levels_.pop_back();
        if (at_ == size_)
            return true;
        if (size_ - at_ >= HeaderSize)
            return false;
        // Less than a header is left. Some devices fill their data sets up with zeros.
        for (std::size_t i = at_; i < size_; ++i) {
            if (bytes_.at(i) != '\0')
                throw CutOff{};
        }
        return true;
    }

    [[nodiscard]] Encoding encoding() const { return levels_.empty() ? outermost_ : levels_.back().encoding; }
    [[nodiscard]] std::size_t bound() const { return levels_.empty() ? size_ : levels_.back().end; }

    [[nodiscard]] std::uint32_t number(std::size_t at, std::size_t size) {
        if (at > size_ || size_ - at < size)
            throw CutOff{};
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            const std::size_t byte = encoding().littleEndian ? size - 1 - i : i;
            value = value << 8U | static_cast<unsigned char>(bytes_.at(at + byte));
        }
        return value;
    }
    [[nodiscard]] std::uint32_t tagAt(std::size_t at) { return number(at, 2) << 16U | number(at + 2, 2); }

    [[nodiscard]] Header headerHere() {
        if (!encoding().hasVrs)
            return {.vr = {}, .length = number(at_ + 4, 4), .valueAt = at_ + HeaderSize};
        const std::array<char, 3> name{bytes_.at(at_ + 4), bytes_.at(at_ + 5), '\0'};
        const bool isLong = DcmVR{name.data()}.usesExtendedLengthEncoding();
        return {.vr = {name[0], name[1]},
                .length = isLong ? number(at_ + 8, 4) : number(at_ + 6, 2),
                .valueAt = at_ + (isLong ? LongHeaderSize : HeaderSize)};
    }

    void enter(std::uint32_t length, Encoding encoding, bool hasFragments) {
        const bool hasLength = length != Undefined;
        const std::size_t end =
            hasLength && length < bound() - std::min(at_, bound()) ? at_ + length : bound();
        levels_.push_back(
            {.end = end, .hasLength = hasLength, .encoding = encoding, .hasFragments = hasFragments});
    }

    /// A value at the top level is to be there; one inside ends with what it is in.
    void pass(std::uint32_t length) {
        if (length > bound() - std::min(at_, bound())) {
            if (levels_.empty())
                throw CutOff{};
            at_ = std::max(at_, bound());
            if (at_ == size_)
                throw CutOff{};
        } else {
            at_ += length;
        }
    }

    void stepItem(std::uint32_t tag) {
        const std::uint32_t length = number(at_ + 4, 4);
        at_ += HeaderSize;
        if (levels_.empty())
            return;
        if (tag != Item) {
            if (!levels_.back().hasLength)
                levels_.pop_back();
        } else if (levels_.back().hasFragments) {
            pass(length);
        } else {
            enter(length, encoding(), false);
        }
    }

    void stepElement(std::uint32_t tag) {
        const Header header = headerHere();
        if (levels_.empty() && tag == PixelData)
            return takePixels(header);
        if (levels_.empty())
            take(tag, header);
        at_ = header.valueAt;
        const bool isUnknown = header.vr == std::array{'U', 'N'};
        const bool isSequence = header.vr == std::array{'S', 'Q'};
        const bool hasFragments =
            tag == PixelData && encoding().hasVrs && !isUnknown && !isSequence && header.length == Undefined;
        layout_.hasNestedFragments = layout_.hasNestedFragments || hasFragments;
        const bool mayHaveItems = !encoding().hasVrs || isUnknown || isSequence;
        // What is not known is encoded as in the default syntax.
        const Encoding inside = isUnknown ? Encoding{} : encoding();
        if (header.length == Undefined)
            enter(header.length, inside, hasFragments);
        else if (mayHaveItems && tag != PixelData && header.length >= HeaderSize &&
                 size_ - std::min(at_, size_) >= HeaderSize && tagAt(at_) == Item)
            enter(header.length, inside, false);
        else
            pass(header.length);
    }

    void takePixels(const Header& header) {
        if (layout_.pixels)
            throw NotReadable{};
        layout_.pixels = {.at = at_, .valueAt = header.valueAt, .vr = header.vr};
        at_ = header.valueAt;
        if (header.length == Undefined) {
            if (!encoding().hasVrs || header.vr == std::array{'S', 'Q'} || header.vr == std::array{'U', 'N'})
                throw NotReadable{};
            layout_.pixels->isEncapsulated = true;
            passFragments();
        } else {
            pass(header.length);
        }
        layout_.pixels->end = at_;
    }

    void passFragments() {
        for (;;) {
            const std::uint32_t tag = tagAt(at_);
            const std::uint32_t length = number(at_ + 4, 4);
            at_ += HeaderSize;
            ++layout_.elements;
            if (tag == SequenceEnd)
                return;
            if (tag != Item)
                throw NotReadable{};
            pass(length);
        }
    }

    [[nodiscard]] std::string text(const Header& header) {
        std::string value;
        const std::size_t length = std::min<std::size_t>(header.length, LongestText);
        for (std::size_t i = 0; i < length && header.valueAt + i < size_; ++i)
            value += bytes_.at(header.valueAt + i);
        while (!value.empty() && (value.back() == '\0' || value.back() == ' '))
            value.pop_back();
        value.erase(0, value.find_first_not_of(' '));
        return value;
    }

    [[nodiscard]] std::uint16_t word(const Header& header) {
        return header.length < 2 ? std::uint16_t{0} : static_cast<std::uint16_t>(number(header.valueAt, 2));
    }

    [[nodiscard]] static std::uint64_t count(std::string_view text) {
        if (text.empty())
            return 1;
        text.remove_prefix(text.starts_with('+') ? 1 : 0);
        std::int32_t value = 0;
        const auto* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        return error == std::errc{} && stop == end && value > 0 ? static_cast<std::uint64_t>(value) : 0;
    }

    void take(std::uint32_t tag, const Header& header) {
        ImageDescription& image = layout_.image;
        Identity& identity = layout_.identity;
        switch (tag) {
            case 0x00080016:
                identity.sopClassUid = text(header);
                break;
            case 0x00080018:
                identity.sopInstanceUid = text(header);
                break;
            case 0x0020000d:
                identity.studyInstanceUid = text(header);
                break;
            case 0x0020000e:
                identity.seriesInstanceUid = text(header);
                break;
            case 0x00280002:
                image.samplesPerPixel = word(header);
                break;
            case 0x00280004:
                image.photometric = text(header);
                break;
            case 0x00280006:
                image.planarConfiguration = word(header);
                break;
            case 0x00280008:
                image.frames = count(text(header));
                break;
            case 0x00280010:
                image.rows = word(header);
                break;
            case 0x00280011:
                image.columns = word(header);
                break;
            case 0x00280100:
                image.bitsAllocated = word(header);
                break;
            case 0x00280101:
                image.bitsStored = word(header);
                break;
            case 0x00280102:
                image.highBit = word(header);
                break;
            case 0x00280103:
                image.pixelRepresentation = word(header);
                break;
            case 0x7fe00001:
                layout_.extendedOffsets = {
                    .at = header.valueAt,
                    .size = std::min<std::size_t>(header.length, size_ - std::min(size_, header.valueAt))};
                break;
            default:
                break;
        }
    }

    FileWindow& bytes_;
    std::size_t size_;
    Encoding outermost_;
    std::size_t at_ = 0;
    std::vector<Level> levels_;
    ObjectLayout layout_;
};

}  // namespace

std::optional<std::uint64_t> ImageDescription::frameSize() const noexcept {
    const std::uint64_t bits = frameBits();
    const std::uint64_t size = bits / 8 + (bits % 8 == 0 ? 0 : 1);
    if (bits == 0 || (bitsAllocated % 8 != 0 && bitsAllocated != 1) || size > LongestValue)
        return std::nullopt;
    return size;
}

std::optional<std::uint64_t> ImageDescription::size() const noexcept {
    const auto frame = frameSize();
    if (!frame || frames == 0 || frames > LongestValue * 8 / frameBits())
        return std::nullopt;
    return (frames * frameBits() + 7) / 8;
}

std::optional<ObjectLayout> readLayout(FileWindow& bytes, std::size_t size, dicom::TransferSyntax syntax) {
    try {
        return LayoutReader{bytes, size, syntax}.read();
    } catch (const CutOff&) {
        return std::nullopt;
    } catch (const NotReadable&) {
        return std::nullopt;
    }
}

}  // namespace tessaly::decoder
