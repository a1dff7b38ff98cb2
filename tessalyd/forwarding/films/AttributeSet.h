#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "dicom/data/ElementWalk.h"
#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::tessalyd::films {

/// The attributes of a data set in little endian as a peer has sent it, with the items of its sequences; what
/// is nested deeper is passed over. Of several attributes with one tag the first counts.
class AttributeSet {
  public:
    [[nodiscard]] bool has(const DcmTagKey& tag) const {
        return values_.contains(tag) || items(tag) != nullptr;
    }
    /// Without padding; a number in binary as its digits, several with a backslash between them. Returns
    /// nullopt if it is missing, and for a sequence.
    [[nodiscard]] std::optional<std::string> text(const DcmTagKey& tag) const;
    /// Returns nullopt if it is missing or no number of 16 bits.
    [[nodiscard]] std::optional<std::uint16_t> number(const DcmTagKey& tag) const;
    /// Of 16 bits each, whatever its representation says.
    [[nodiscard]] std::vector<std::uint16_t> numbers(const DcmTagKey& tag) const;
    /// Null if there is no such sequence.
    [[nodiscard]] const std::vector<AttributeSet>* items(const DcmTagKey& tag) const;
    /// The attribute in the first item of a sequence; empty if either is missing.
    [[nodiscard]] std::string textInItem(const DcmTagKey& sequence, const DcmTagKey& tag) const;

  private:
    friend class AttributeCollector;
    struct Value {
        DcmEVR vr = EVR_UNKNOWN;
        std::string bytes;
    };
    std::map<DcmTagKey, Value> values_;
    std::map<DcmTagKey, std::vector<AttributeSet>> sequences_;
};

/// Collects the attributes of a data set while its bytes arrive. Time is proportional to them; memory is
/// bounded: the pixel data of an item is handed on piece by piece and not kept.
class AttributeCollector final : private dicom::ElementVisitor {
  public:
    static constexpr std::size_t MostBytes = std::size_t{1} << 20U;  ///< of values
    static constexpr std::size_t MostElements = 2000;                ///< with those in items, and the items

    using Pixels = std::function<void(std::span<const char>)>;
    /// `pixels` may be missing: pixel data is passed over then. What it throws comes through.
    explicit AttributeCollector(dicom::TransferSyntax syntax, Pixels pixels = {});

    void take(std::span<const char> bytes) { walk_.take(bytes); }
    /// Why the data set cannot be used, in 64 characters for its sender; nothing if it can. Once all of it
    /// has been taken.
    [[nodiscard]] std::optional<std::string> fault() const;
    [[nodiscard]] AttributeSet& attributes() noexcept { return attributes_; }
    /// As the pixel data's element says.
    [[nodiscard]] std::uint64_t pixelBytes() const noexcept { return pixelBytes_; }

  private:
    [[nodiscard]] bool element(const dicom::ElementHead& head) override;
    void value(std::span<const char> piece) override;
    [[nodiscard]] AttributeSet* ownerOf(const dicom::ElementHead& head);

    Pixels pixels_;
    dicom::ElementWalk walk_;
    AttributeSet attributes_;
    std::vector<AttributeSet>* sequence_ = nullptr;  // the one that is open
    std::string* current_ = nullptr;
    bool inPixels_ = false;
    std::uint64_t pixelBytes_ = 0;
    std::size_t elements_ = 0;
    std::size_t bytes_ = 0;
};

/// The attributes of a data set that is there whole. Returns nullopt if it cannot be used.
[[nodiscard]] std::optional<AttributeSet> attributesOf(std::span<const char> bytes,
                                                       dicom::TransferSyntax syntax);

}  // namespace tessaly::tessalyd::films
