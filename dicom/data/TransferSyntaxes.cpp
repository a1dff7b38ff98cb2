#include "dicom/data/TransferSyntaxes.h"

#include <algorithm>
#include <array>

namespace tessaly::dicom {

namespace {

constexpr TransferSyntaxRow plain(const char* uid, const char* name, Encoding encoding) {
    return {uid, name, encoding, false, false, PixelCoding::Native};
}
constexpr TransferSyntaxRow lossless(const char* uid, const char* name, PixelCoding coding) {
    return {uid, name, Encoding::ExplicitLittleEndian, true, false, coding};
}
constexpr TransferSyntaxRow lossy(const char* uid, const char* name, PixelCoding coding) {
    return {uid, name, Encoding::ExplicitLittleEndian, true, true, coding};
}

// docs/make-tables makes the conformance statement's table of these lines.
constexpr std::array Table{
    plain("1.2.840.10008.1.2", "Implicit VR Little Endian", Encoding::ImplicitLittleEndian),
    plain("1.2.840.10008.1.2.1", "Explicit VR Little Endian", Encoding::ExplicitLittleEndian),
    plain("1.2.840.10008.1.2.2", "Explicit VR Big Endian (retired)", Encoding::ExplicitBigEndian),
    plain("1.2.840.10008.1.2.1.99", "Deflated Explicit VR Little Endian", Encoding::Deflated),
    lossless("1.2.840.10008.1.2.1.98", "Encapsulated Uncompressed Explicit VR Little Endian",
             PixelCoding::Uncompressed),
    lossless("1.2.840.10008.1.2.8.1", "Deflated Image Frame Compression", PixelCoding::DeflatedFrame),
    lossless("1.2.840.10008.1.2.5", "RLE Lossless", PixelCoding::RunLength),
    lossy("1.2.840.10008.1.2.4.50", "JPEG Baseline (Process 1)", PixelCoding::Jpeg),
    lossy("1.2.840.10008.1.2.4.51", "JPEG Extended (Processes 2 and 4)", PixelCoding::Jpeg),
    lossy("1.2.840.10008.1.2.4.52", "JPEG Extended (Processes 3 and 5) (retired)", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.53", "JPEG Spectral Selection, Non-Hierarchical (Processes 6 and 8) (retired)",
          PixelCoding::Jpeg),
    lossy("1.2.840.10008.1.2.4.54", "JPEG Spectral Selection, Non-Hierarchical (Processes 7 and 9) (retired)",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.55", "JPEG Full Progression, Non-Hierarchical (Processes 10 and 12) (retired)",
          PixelCoding::Jpeg),
    lossy("1.2.840.10008.1.2.4.56", "JPEG Full Progression, Non-Hierarchical (Processes 11 and 13) (retired)",
          PixelCoding::Other),
    lossless("1.2.840.10008.1.2.4.57", "JPEG Lossless, Non-Hierarchical (Process 14)", PixelCoding::Jpeg),
    lossless("1.2.840.10008.1.2.4.58", "JPEG Lossless, Non-Hierarchical (Process 15) (retired)",
             PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.59", "JPEG Extended, Hierarchical (Processes 16 and 18) (retired)",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.60", "JPEG Extended, Hierarchical (Processes 17 and 19) (retired)",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.61", "JPEG Spectral Selection, Hierarchical (Processes 20 and 22) (retired)",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.62", "JPEG Spectral Selection, Hierarchical (Processes 21 and 23) (retired)",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.63", "JPEG Full Progression, Hierarchical (Processes 24 and 26) (retired)",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.64", "JPEG Full Progression, Hierarchical (Processes 25 and 27) (retired)",
          PixelCoding::Other),
    lossless("1.2.840.10008.1.2.4.65", "JPEG Lossless, Hierarchical (Process 28) (retired)",
             PixelCoding::Other),
    lossless("1.2.840.10008.1.2.4.66", "JPEG Lossless, Hierarchical (Process 29) (retired)",
             PixelCoding::Other),
    lossless("1.2.840.10008.1.2.4.70",
             "JPEG Lossless, Non-Hierarchical, First-Order Prediction (Process 14, Selection Value 1)",
             PixelCoding::Jpeg),
    lossless("1.2.840.10008.1.2.4.80", "JPEG-LS Lossless", PixelCoding::JpegLs),
    lossy("1.2.840.10008.1.2.4.81", "JPEG-LS Lossy (Near-Lossless)", PixelCoding::JpegLs),
    lossless("1.2.840.10008.1.2.4.90", "JPEG 2000 (Lossless Only)", PixelCoding::Jpeg2000),
    lossy("1.2.840.10008.1.2.4.91", "JPEG 2000", PixelCoding::Jpeg2000),
    lossless("1.2.840.10008.1.2.4.92", "JPEG 2000 Part 2 Multi-component (Lossless Only)",
             PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.93", "JPEG 2000 Part 2 Multi-component", PixelCoding::Other),
    lossless("1.2.840.10008.1.2.4.201", "High-Throughput JPEG 2000 (Lossless Only)", PixelCoding::Jpeg2000),
    lossless("1.2.840.10008.1.2.4.202", "High-Throughput JPEG 2000 with RPCL Options (Lossless Only)",
             PixelCoding::Jpeg2000),
    lossy("1.2.840.10008.1.2.4.203", "High-Throughput JPEG 2000", PixelCoding::Jpeg2000),
    lossless("1.2.840.10008.1.2.4.110", "JPEG XL Lossless", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.111", "JPEG XL JPEG Recompression", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.112", "JPEG XL", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.100", "MPEG2 Main Profile / Main Level", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.100.1", "Fragmentable MPEG2 Main Profile / Main Level", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.101", "MPEG2 Main Profile / High Level", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.101.1", "Fragmentable MPEG2 Main Profile / High Level", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.102", "MPEG-4 AVC/H.264 High Profile / Level 4.1", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.102.1", "Fragmentable MPEG-4 AVC/H.264 High Profile / Level 4.1",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.103", "MPEG-4 AVC/H.264 BD-compatible High Profile / Level 4.1",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.103.1", "Fragmentable MPEG-4 AVC/H.264 BD-compatible High Profile / Level 4.1",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.104", "MPEG-4 AVC/H.264 High Profile / Level 4.2 For 2D Video",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.104.1", "Fragmentable MPEG-4 AVC/H.264 High Profile / Level 4.2 For 2D Video",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.105", "MPEG-4 AVC/H.264 High Profile / Level 4.2 For 3D Video",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.105.1", "Fragmentable MPEG-4 AVC/H.264 High Profile / Level 4.2 For 3D Video",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.106", "MPEG-4 AVC/H.264 Stereo High Profile / Level 4.2", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.106.1", "Fragmentable MPEG-4 AVC/H.264 Stereo High Profile / Level 4.2",
          PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.107", "HEVC/H.265 Main Profile / Level 5.1", PixelCoding::Other),
    lossy("1.2.840.10008.1.2.4.108", "HEVC/H.265 Main 10 Profile / Level 5.1", PixelCoding::Other),
};

const TransferSyntaxRow* find(std::string_view uid) noexcept {
    const auto* const row = std::find_if(Table.begin(), Table.end(),
                                         [uid](const TransferSyntaxRow& one) { return one.uid == uid; });
    return row == Table.end() ? nullptr : &*row;
}

}  // namespace

std::span<const TransferSyntaxRow> transferSyntaxes() noexcept {
    return Table;
}

TransferSyntax::TransferSyntax(std::string_view uid) noexcept : row_(find(uid)) {}

TransferSyntax::TransferSyntax(E_TransferSyntax syntax) noexcept : row_(find(DcmXfer{syntax}.getXferID())) {}

std::size_t TransferSyntax::index() const noexcept {
    return isKnown() ? static_cast<std::size_t>(row_ - Table.data()) : Table.size();
}

E_TransferSyntax TransferSyntax::toolkitName() const noexcept {
    if (!isKnown())
        return EXS_LittleEndianExplicit;
    const E_TransferSyntax named = DcmXfer{uid()}.getXfer();
    return named == EXS_Unknown ? EXS_JPEG2000 : named;
}

}  // namespace tessaly::dicom
