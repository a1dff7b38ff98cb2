#include "dicom/data/ElementWalk.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dctag.h>

#include <algorithm>

namespace tessaly::dicom {

namespace {

constexpr std::size_t DeepestLevel = 2 * ElementWalk::DeepestSequence;  // each with an item

bool isDelimiter(const DcmTagKey& tag) {
    return tag == DCM_ItemDelimitationItem || tag == DCM_SequenceDelimitationItem;
}

}  // namespace

DcmEVR representation(const ElementHead& head) {
    const bool isNamed = head.vr != EVR_UNKNOWN && head.vr != EVR_UNKNOWN2B && head.vr != EVR_UN;
    return isNamed ? head.vr : DcmTag{head.tag}.getEVR();
}

std::optional<std::uint16_t> unsignedShort(std::string_view value, bool littleEndian) noexcept {
    if (value.size() < 2)
        return std::nullopt;
    const auto low = static_cast<unsigned char>(value[littleEndian ? 0 : 1]);
    const auto high = static_cast<unsigned char>(value[littleEndian ? 1 : 0]);
    return static_cast<std::uint16_t>(high << 8 | low);
}

ElementWalk::ElementWalk(TransferSyntax syntax, Reading reading, ElementVisitor& visitor)
    : visitor_(visitor),
      outermost_{.hasVrs = syntax.hasVrs(), .littleEndian = syntax.isLittleEndian()},
      reading_(reading) {}

void ElementWalk::take(std::span<const char> bytes) {
    while (!bytes.empty() && !ended_) {
        if (valueLeft_ > 0) {
            const auto piece =
                bytes.first(static_cast<std::size_t>(std::min<std::uint64_t>(valueLeft_, bytes.size())));
            visitor_.value(piece);
            pass(piece.size());
            bytes = bytes.subspan(piece.size());
            continue;
        }
        if (have_ == 0 && passRest())
            continue;
        const std::size_t count = std::min(needed(), bytes.size());
        std::copy_n(bytes.begin(), count, head_.begin() + static_cast<std::ptrdiff_t>(have_));
        have_ += count;
        bytes = bytes.subspan(count);
        if (have_ == needed_)
            step();
    }
}

void ElementWalk::pass(std::uint64_t count) noexcept {
    valueLeft_ -= count;
    at_ += count;
}

bool ElementWalk::isIncomplete() const noexcept {
    const std::uint64_t size = at_ + have_;
    for (const Level& level : levels_) {
        if (level.isUnknown)
            break;
        if (level.end != Unbounded && level.end > size)
            return true;
    }
    const bool isKnown =
        std::none_of(levels_.begin(), levels_.end(), [](const Level& level) { return level.isUnknown; });
    if (valueLeft_ > 0 || inContent_)
        return isKnown;
    const auto* const end = head_.begin() + have_;
    return std::any_of(head_.begin(), end, [](char byte) { return byte != '\0'; });
}

ElementWalk::Encoding ElementWalk::encoding() const noexcept {
    return levels_.empty() ? outermost_ : levels_.back().encoding;
}

/// What nothing here reaches beyond, whatever its own length says.
std::uint64_t ElementWalk::bound() const noexcept {
    return levels_.empty() || reading_ != Reading::Enclosed ? Unbounded : levels_.back().end;
}

std::uint32_t ElementWalk::number(std::size_t offset, std::size_t size, bool littleEndian) const noexcept {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t byte = littleEndian ? size - 1 - i : i;
        value = value << 8U | static_cast<unsigned char>(head_[offset + byte]);
    }
    return value;
}

DcmTagKey ElementWalk::tagOf(bool littleEndian) const {
    return {static_cast<Uint16>(number(0, 2, littleEndian)), static_cast<Uint16>(number(2, 2, littleEndian))};
}

void ElementWalk::leaveEnded() noexcept {
    while (!levels_.empty() && levels_.back().end <= at_)
        levels_.pop_back();
}

/// True when less is left of what this is in than a head takes: nothing begins there.
bool ElementWalk::passRest() noexcept {
    leaveEnded();
    if (inContent_ || bound() == Unbounded || bound() >= at_ + ShortHead)
        return false;
    valueLeft_ = bound() - at_;
    return true;
}

void ElementWalk::step() {
    if (inContent_)
        readContent();
    // A value that is a sequence begins with the head of its first item.
    if (!inContent_ && !ended_ && have_ >= ShortHead)
        readHead();
}

void ElementWalk::readHead() {
    leaveEnded();
    ElementHead head{.tag = tagOf(encoding().littleEndian),
                     .depth = levels_.size(),
                     .littleEndian = encoding().littleEndian};
    const bool isItem = head.tag == DCM_Item;
    if (!isItem && !isDelimiter(head.tag))
        return readElement(head);
    head.length = number(4, 4, head.littleEndian);
    if (!visitor_.element(head)) {
        ended_ = true;
        return;
    }
    leaveHead(ShortHead);
    if (isItem)
        readItem(head);
    else
        readDelimiter(head);
}

void ElementWalk::readItem(const ElementHead& head) {
    if (!levels_.empty() && levels_.back().hasFragments)
        beginValue(head.length);
    else
        enter(head.length, {.encoding = encoding(), .isItem = true});
}

/// Ends what has no length of its own. Some devices end a sequence without its last item.
void ElementWalk::readDelimiter(const ElementHead& head) {
    const auto isOpen = [this] { return !levels_.empty() && !levels_.back().hasLength; };
    if (!isOpen())
        return;
    const bool wasItem = levels_.back().isItem;
    levels_.pop_back();
    if (wasItem && head.tag == DCM_SequenceDelimitationItem && isOpen() && !levels_.back().isItem)
        levels_.pop_back();
}

void ElementWalk::readElement(ElementHead head) {
    Encoding inside = encoding();
    std::size_t size = ShortHead;
    bool isKnown = true;
    bool mayHaveFragments = head.tag == DCM_PixelData;
    if (inside.hasVrs) {
        const std::array name{head_[4], head_[5], '\0'};
        const DcmVR vr{name.data()};
        head.vr = vr.getEVR();
        if (vr.usesExtendedLengthEncoding()) {
            size = LongHead;
            if (bound() < at_ + LongHead) {
                leaveHead(ShortHead);
                return beginValue(ElementHead::Undefined);  // what is left there
            }
            if (have_ < LongHead) {
                needed_ = LongHead;
                return;
            }
        }
        head.length = size == LongHead ? number(8, 4, head.littleEndian) : number(6, 2, head.littleEndian);
        isKnown = head.vr != EVR_UN;
        if (!isKnown)
            inside = {};  // it comes as in the default syntax
        mayHaveFragments = mayHaveFragments && isKnown && head.vr != EVR_SQ;
    } else {
        head.length = number(4, 4, head.littleEndian);
    }
    if (!visitor_.element(head)) {
        ended_ = true;
        return;
    }
    leaveHead(size);
    if (head.length == ElementHead::Undefined) {
        enter(head.length, {.encoding = inside, .hasFragments = mayHaveFragments, .isUnknown = !isKnown});
        return;
    }
    const std::uint64_t end = std::min(bound(), at_ + head.length);
    if (end >= at_ + ShortHead && mayBeSequence(head.vr)) {
        inContent_ = true;
        contentLength_ = head.length;
        contentEncoding_ = inside;
        contentTag_ = head.tag;
    } else {
        beginValue(head.length);
    }
}

/// Whether its first bytes are worth a look. Where no representation is named, the dictionary is asked later,
/// and only about what begins as a sequence does.
bool ElementWalk::mayBeSequence(DcmEVR vr) const noexcept {
    return reading_ != Reading::ByRepresentation || vr == EVR_SQ || !encoding().hasVrs;
}

bool ElementWalk::beginsSequence() const {
    if (tagOf(contentEncoding_.littleEndian) != DCM_Item)
        return false;
    return reading_ != Reading::ByRepresentation || encoding().hasVrs ||
           DcmTag{contentTag_}.getEVR() == EVR_SQ;
}

void ElementWalk::readContent() {
    inContent_ = false;
    if (beginsSequence()) {
        enter(contentLength_, {.encoding = contentEncoding_});
        return;
    }
    beginValue(contentLength_);
    visitor_.value({head_.data(), ShortHead});
    pass(ShortHead);
    have_ = 0;
}

void ElementWalk::enter(std::uint32_t length, Level level) {
    level.hasLength = length != ElementHead::Undefined;
    level.end = std::min(bound(), level.hasLength ? at_ + length : Unbounded);
    levels_.push_back(level);
    if (levels_.size() > DeepestLevel)
        ended_ = tooDeep_ = true;
}

void ElementWalk::beginValue(std::uint32_t length) noexcept {
    const std::uint64_t end = std::min(bound(), at_ + length);
    valueLeft_ = end > at_ ? end - at_ : 0;
}

void ElementWalk::leaveHead(std::size_t size) noexcept {
    at_ += size;
    have_ = 0;
    needed_ = ShortHead;
}

}  // namespace tessaly::dicom
