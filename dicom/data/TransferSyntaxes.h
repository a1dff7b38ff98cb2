#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tessaly::dicom {

/// How the elements of a data set are encoded.
enum class Encoding : std::uint8_t {
    ImplicitLittleEndian,
    ExplicitLittleEndian,
    ExplicitBigEndian,
    Deflated,  ///< explicit little endian, and the whole of it deflated
};

/// How the pixel data of a transfer syntax is coded, and so what decodes it.
enum class PixelCoding : std::uint8_t {
    Native,         ///< not coded
    Uncompressed,   ///< frames as they are natively, in fragments
    DeflatedFrame,  ///< each frame deflated
    RunLength,
    Jpeg,
    JpegLs,
    Jpeg2000,  ///< with either block coder
    Other,     ///< nothing here decodes it
};

struct TransferSyntaxRow {
    const char* uid;
    const char* name;
    Encoding encoding;
    bool isEncapsulated;
    bool isLossy;  ///< what comes in it may have lost something
    PixelCoding coding;
};

/// All that objects are taken in.
[[nodiscard]] std::span<const TransferSyntaxRow> transferSyntaxes() noexcept;

/// A transfer syntax of the table, or an unknown one, which is taken for explicit little endian, as all are
/// that the standard has had since.
class TransferSyntax {
  public:
    constexpr TransferSyntax() noexcept = default;
    constexpr explicit TransferSyntax(const TransferSyntaxRow& row) noexcept : row_(&row) {}
    explicit TransferSyntax(std::string_view uid) noexcept;
    /// By the toolkit's name for it; it has none for the newer ones.
    TransferSyntax(E_TransferSyntax syntax) noexcept;  // NOLINT(google-explicit-constructor)

    [[nodiscard]] bool isKnown() const noexcept { return row_ != nullptr; }
    /// Empty where it is unknown.
    [[nodiscard]] const char* uid() const noexcept { return isKnown() ? row_->uid : ""; }
    [[nodiscard]] const char* name() const noexcept { return isKnown() ? row_->name : ""; }

    /// True if elements name their value representations.
    [[nodiscard]] bool hasVrs() const noexcept { return encoding() != Encoding::ImplicitLittleEndian; }
    [[nodiscard]] bool isLittleEndian() const noexcept { return encoding() != Encoding::ExplicitBigEndian; }
    /// True if the data set cannot be read before it is inflated.
    [[nodiscard]] bool isDeflated() const noexcept { return encoding() == Encoding::Deflated; }
    [[nodiscard]] bool isEncapsulated() const noexcept { return isKnown() && row_->isEncapsulated; }
    [[nodiscard]] bool isLossy() const noexcept { return isKnown() && row_->isLossy; }
    [[nodiscard]] PixelCoding coding() const noexcept {
        return isKnown() ? row_->coding : PixelCoding::Other;
    }

    /// Its place in the table; the size of the table where it is unknown.
    [[nodiscard]] std::size_t index() const noexcept;
    /// What the toolkit reads its elements by. For an encapsulated one that the toolkit does not know it is
    /// the name of another: their data sets are encoded alike.
    [[nodiscard]] E_TransferSyntax toolkitName() const noexcept;

    friend constexpr bool operator==(TransferSyntax one, TransferSyntax other) noexcept {
        return one.row_ == other.row_;
    }

  private:
    [[nodiscard]] Encoding encoding() const noexcept {
        return isKnown() ? row_->encoding : Encoding::ExplicitLittleEndian;
    }

    const TransferSyntaxRow* row_ = nullptr;
};

/// The syntaxes that messages other than objects come in, and that every object can be brought into.
[[nodiscard]] inline bool isUncompressed(TransferSyntax syntax) noexcept {
    return syntax.coding() == PixelCoding::Native && !syntax.isDeflated();
}

/// The syntaxes that objects come in, and so are in the archive.
[[nodiscard]] inline bool isArchived(TransferSyntax syntax) noexcept {
    return syntax.isKnown();
}

}  // namespace tessaly::dicom
