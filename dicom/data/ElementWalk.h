#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::dicom {

/// What stands before a value.
struct ElementHead {
    static constexpr std::uint32_t Undefined = 0xffffffff;

    DcmTagKey tag;
    DcmEVR vr = EVR_UNKNOWN;  ///< as sent; EVR_UNKNOWN where the encoding names none
    std::uint32_t length = 0;
    std::size_t depth = 0;  ///< sequences and items around it
    bool littleEndian = true;
};

/// The representation of an element's value. Where none is sent, or an unknown one, it is the dictionary's.
[[nodiscard]] DcmEVR representation(const ElementHead& head);

/// The first number of a value of the representation US; nullopt if there is none.
[[nodiscard]] std::optional<std::uint16_t> unsignedShort(std::string_view value, bool littleEndian) noexcept;

/// Is told what a walk meets.
class ElementVisitor {
  public:
    virtual ~ElementVisitor() = default;

    /// Called for every element, item and delimiter. False ends the walk before it.
    [[nodiscard]] virtual bool element(const ElementHead& head) = 0;
    /// The value of the element before, in pieces of any size. Not called for sequences, whose elements are
    /// told one by one.
    virtual void value(std::span<const char> piece) = 0;
};

/// Steps through a data set while its bytes arrive, in time proportional to them and in constant memory: the
/// open sequences are kept in a list of limited length. Never fails: what makes no sense is passed over.
class ElementWalk {
  public:
    /// How the contradictions of a data set are resolved.
    enum class Reading : std::uint8_t {
        ByRepresentation,  ///< sequences are what is named so; an inner length counts more than an outer one
        ByContent,         ///< the same, but whatever begins with an item is a sequence
        Enclosed,          ///< as ByContent, but nothing reaches beyond what it is in
    };
    static constexpr std::size_t DeepestSequence = 64;  // reports of real devices have a dozen

    /// The visitor must outlive the walk.
    ElementWalk(TransferSyntax syntax, Reading reading, ElementVisitor& visitor);

    /// The next bytes of the data set.
    void take(std::span<const char> bytes);

    /// True when the visitor has ended the walk, or it has become too deep; bytes are ignored from then on.
    [[nodiscard]] bool isEnded() const noexcept { return ended_; }
    /// True when there are more sequences within each other than DeepestSequence.
    [[nodiscard]] bool isTooDeep() const noexcept { return tooDeep_; }

    /// Bytes of a value that come next. They may be passed over instead of being taken.
    [[nodiscard]] std::uint64_t passable() const noexcept { return valueLeft_; }
    void pass(std::uint64_t count) noexcept;
    /// Bytes that are missing to the next step, where no value comes next.
    [[nodiscard]] std::size_t needed() const noexcept { return needed_ - have_; }

    /// When all bytes have been taken: true when a value is longer than what is there of it, or a head is
    /// there in part. What is merely not ended, as some devices leave the last sequence, or is filled up with
    /// zeros, is complete.
    [[nodiscard]] bool isIncomplete() const noexcept;

  private:
    static constexpr std::uint64_t Unbounded = std::numeric_limits<std::uint64_t>::max();
    static constexpr std::size_t ShortHead = 8;
    static constexpr std::size_t LongHead = 12;

    struct Encoding {
        bool hasVrs = false;  // elements name their value representations
        bool littleEndian = true;
    };
    struct Level {
        std::uint64_t end = Unbounded;
        bool hasLength = false;
        Encoding encoding;
        bool hasFragments = false;  // its items are pieces of pixel data
        bool isUnknown = false;     // its encoding is a guess: some devices use another
        bool isItem = false;
    };

    [[nodiscard]] Encoding encoding() const noexcept;
    [[nodiscard]] std::uint64_t bound() const noexcept;
    [[nodiscard]] std::uint32_t number(std::size_t offset, std::size_t size,
                                       bool littleEndian) const noexcept;
    [[nodiscard]] DcmTagKey tagOf(bool littleEndian) const;
    [[nodiscard]] bool mayBeSequence(DcmEVR vr) const noexcept;
    [[nodiscard]] bool beginsSequence() const;

    void leaveEnded() noexcept;
    [[nodiscard]] bool passRest() noexcept;
    void step();
    void readHead();
    void readItem(const ElementHead& head);
    void readDelimiter(const ElementHead& head);
    void readElement(ElementHead head);
    void readContent();
    void enter(std::uint32_t length, Level level);
    void beginValue(std::uint32_t length) noexcept;
    void leaveHead(std::size_t size) noexcept;

    ElementVisitor& visitor_;
    std::vector<Level> levels_;

    std::uint64_t at_ = 0;  // in the data set: where head_ begins
    std::size_t have_ = 0;  // bytes in head_
    std::size_t needed_ = ShortHead;
    std::uint64_t valueLeft_ = 0;
    std::array<char, LongHead> head_{};

    std::uint32_t contentLength_ = 0;
    DcmTagKey contentTag_;
    Encoding contentEncoding_;
    bool inContent_ = false;  // head_ is the beginning of a value that may be a sequence

    Encoding outermost_;
    Reading reading_;
    bool ended_ = false;
    bool tooDeep_ = false;
};

}  // namespace tessaly::dicom
