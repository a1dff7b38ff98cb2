#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <cstddef>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "dicom/data/ElementWalk.h"
#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::dicom {

/// Why a data set has no header that can be read. what() tells nothing of a patient.
class HeaderFault : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Reads some attributes of a data set while its bytes arrive, in whatever pieces. Time is proportional to
/// the bytes, memory to the attributes wanted: nothing else is kept. Sequences are walked through, not read.
class AttributeReader final : private ElementVisitor {
  public:
    /// Longer values are not kept: none that is wanted is nearly as long.
    static constexpr std::size_t LongestValue = 4096;
    /// Elements of the data set itself that may come before one with a lower tag, or twice.
    static constexpr std::size_t MostOutOfOrder = 10'000;

    struct Value {
        std::string bytes;  ///< empty as well where the value is longer than LongestValue
        DcmEVR vr = EVR_UNKNOWN;
        bool littleEndian = true;
    };

    /// `wanted` are attributes of the data set itself. The reader is done at the first element that is `end`
    /// or behind it. `observer` is told all that the reader meets; it may be null, and must outlive the
    /// reader.
    AttributeReader(TransferSyntax syntax, std::vector<DcmTagKey> wanted, const DcmTagKey& end,
                    ElementVisitor* observer = nullptr);
    AttributeReader(const AttributeReader&) = delete;
    AttributeReader& operator=(const AttributeReader&) = delete;

    /// The next bytes of the data set. Returns true when the reader is done; more bytes are ignored then.
    /// Throws HeaderFault where sequences are nested too deeply, or too many elements are out of order.
    bool take(std::span<const char> bytes);
    [[nodiscard]] bool isDone() const noexcept { return walk_.isEnded(); }
    /// The data set has ended. Throws HeaderFault where it has ended within an element.
    void finish() const;

    /// Returns null if there is no such attribute. The first of several counts.
    [[nodiscard]] const Value* find(const DcmTagKey& tag) const;
    /// How many bytes of values are held.
    [[nodiscard]] std::size_t bytesKept() const noexcept;

  private:
    [[nodiscard]] bool element(const ElementHead& head) override;
    void value(std::span<const char> piece) override;

    std::vector<DcmTagKey> wanted_;
    DcmTagKey end_;
    ElementVisitor* observer_;
    ElementWalk walk_;
    std::map<DcmTagKey, Value> values_;
    Value* current_ = nullptr;  // in values_: the one whose bytes come now
    DcmTagKey last_{0, 0};
    std::size_t outOfOrder_ = 0;
    bool isDisordered_ = false;
};

}  // namespace tessaly::dicom
