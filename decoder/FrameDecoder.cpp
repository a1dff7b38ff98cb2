#include "decoder/FrameDecoder.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>
#include <dcmtk/dcmjpeg/djdecode.h>
#include <dcmtk/dcmjpls/djdecode.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <utility>

#include "decoder/CodeStream.h"
#include "decoder/Colours.h"
#include "decoder/Jpeg2000.h"
#include "decoder/RunLength.h"
#include "dicom/data/Inflater.h"

namespace tessaly::decoder {

namespace {

using dicom::PixelCoding;

/// True for codings of bytes, whatever pixels these hold.
bool takesAnyBits(PixelCoding coding) {
    return coding == PixelCoding::Uncompressed || coding == PixelCoding::DeflatedFrame;
}

/// A data set of one frame, for the toolkit's codecs. False if there is no memory for it.
bool describe(DcmDataset& set, const ImageDescription& image, const std::string& sopClassUid) {
    bool good = set.putAndInsertString(DCM_SOPClassUID, sopClassUid.c_str()).good() &&
                set.putAndInsertString(DCM_PhotometricInterpretation, image.photometric.c_str()).good();
    for (const auto& [tag, value] : {std::pair{DCM_SamplesPerPixel, image.samplesPerPixel},
                                     {DCM_PlanarConfiguration, image.planarConfiguration},
                                     {DCM_Rows, image.rows},
                                     {DCM_Columns, image.columns},
                                     {DCM_BitsAllocated, image.bitsAllocated},
                                     {DCM_BitsStored, image.bitsStored},
                                     {DCM_HighBit, image.highBit},
                                     {DCM_PixelRepresentation, image.pixelRepresentation}})
        good = good && set.putAndInsertUint16(tag, value).good();
    return good;
}

bool append(DcmPixelSequence& sequence, Bytes content) {
    auto item = std::make_unique<DcmPixelItem>(DcmTag{DCM_Item, EVR_OB});
    if (!content.empty() &&
        item->putUint8Array(content.data(), static_cast<unsigned long>(content.size())).bad())
        return false;
    return sequence.insert(item.release()).good();
}

}  // namespace

void registerCodecs() {
    DJDecoderRegistration::registerCodecs(EDC_photometricInterpretation, EUC_never);
    DJLSDecoderRegistration::registerCodecs(EJLSUC_never);
}

FrameDecoder::FrameDecoder(ImageDescription image, dicom::TransferSyntax syntax, std::string sopClassUid)
    : described_(image),
      image_(std::move(image)),
      syntax_(syntax),
      sopClassUid_(std::move(sopClassUid)),
      size_(described_.frameSize().value_or(0)) {}

bool FrameDecoder::decode(Frame frame, std::vector<unsigned char>& target) {
    const bool hasBits = described_.bitsAllocated % 8 != 0;
    if (size_ == 0 || frame.empty() || (hasBits && !takesAnyBits(syntax_.coding())))
        return false;
    Bytes stream = frame.front();
    if (frame.size() > 1) {
        joined_.clear();
        for (const Bytes part : frame)
            joined_.insert(joined_.end(), part.begin(), part.end());
        stream = joined_;
    }
    // Nothing is taken for a frame before its stream says that it is one.
    switch (syntax_.coding()) {
        case PixelCoding::Uncompressed:
            if (stream.size() != size_ && stream.size() != size_ + size_ % 2)
                return false;
            target.assign(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size_));
            return true;
        case PixelCoding::DeflatedFrame:
            return inflate(stream, target);
        case PixelCoding::RunLength: {
            constexpr std::size_t MostFromOne = 64;  // two bytes of code come to 128 at most
            if (size_ / MostFromOne > stream.size())
                return false;
            target.resize(size_);
            return decodeRunLength(stream, described_, target);
        }
        case PixelCoding::Jpeg2000:
            return decodeWavelets(stream, target);
        case PixelCoding::Jpeg:
        case PixelCoding::JpegLs: {
            const bool isLs = syntax_.coding() == PixelCoding::JpegLs;
            const auto described = readJpegStream(stream, isLs ? Coding::JpegLs : Coding::Jpeg);
            if (!described || !matches(*described))
                return false;
            target.resize(size_);
            return decodeStream(stream.first(described->size), *described, target);
        }
        default:
            return false;
    }
}

bool FrameDecoder::inflate(Bytes stream, std::vector<unsigned char>& target) const {
    constexpr std::size_t MostFromOne = 1040;  // what a code of the shortest length repeats
    if (size_ / MostFromOne > stream.size())
        return false;
    target.resize(size_);
    std::size_t at = 0;
    dicom::Inflater inflater;
    const auto take = [&](std::span<const char> bytes) {
        const bool isTooMuch = bytes.size() > size_ - at;
        if (!isTooMuch)
            std::memcpy(target.data() + at, bytes.data(), bytes.size());
        at += isTooMuch ? 0 : bytes.size();
        return isTooMuch;
    };
    return inflater.inflate({reinterpret_cast<const char*>(stream.data()), stream.size()}, take) ==
               dicom::Inflater::State::Ended &&
           at == size_;
}

bool FrameDecoder::decodeWavelets(Bytes stream, std::vector<unsigned char>& target) {
    const auto described = readCodeStream(stream);
    constexpr unsigned Colours = 3;
    const bool isColour = described_.samplesPerPixel == Colours;
    if (!described || described->rows != described_.rows || described->columns != described_.columns ||
        described->components != described_.samplesPerPixel || (described->components != 1 && !isColour) ||
        described->precision > described_.bitsAllocated || described_.bitsStored > described_.bitsAllocated ||
        (described_.bitsAllocated != 8 && described_.bitsAllocated != 16) ||
        (described->isSigned && described_.pixelRepresentation == 0))
        return false;
    const std::string& photometric = described_.photometric;
    const bool isTransformed = photometric == "YBR_RCT" || photometric == "YBR_ICT";
    const bool isFull = photometric == "YBR_FULL" || photometric == "YBR_FULL_422";
    // Of what is said to be transformed and is not, nobody knows the colours.
    if (isTransformed && !described->hasColourTransform)
        return false;
    target.resize(size_);
    if (!decodeJpeg2000(stream.first(described->size), *described, described_, target))
        return false;
    if (!isColour)
        return true;
    image_.planarConfiguration = 0;
    if (isFull && !described->hasColourTransform) {
        if (described->isSigned)
            return false;
        toRgb(target, described_.bitsAllocated / 8U, described->precision);
    }
    if (isFull || isTransformed)
        image_.photometric = "RGB";
    return true;
}

bool FrameDecoder::matches(const JpegStream& stream) const {
    constexpr unsigned FewestBits = 2;
    return stream.rows == described_.rows && stream.columns == described_.columns &&
           stream.components == described_.samplesPerPixel &&
           (stream.components == 1 || stream.components == 3) && stream.precision >= FewestBits &&
           stream.precision <= described_.bitsAllocated &&
           described_.bitsStored <= described_.bitsAllocated &&
           (described_.bitsAllocated == 8 || described_.bitsAllocated == 16);
}

bool FrameDecoder::decodeStream(Bytes stream, const JpegStream& described,
                                std::vector<unsigned char>& target) {
    constexpr unsigned Byte = 8;
    const bool widened = described_.bitsAllocated > Byte && described.precision <= Byte;
    ImageDescription coded = described_;
    if (widened) {  // 8 bits came for 16
        coded.bitsAllocated = Byte;
        coded.bitsStored = std::min<std::uint16_t>(coded.bitsStored, Byte);
        coded.highBit = static_cast<std::uint16_t>(coded.bitsStored - 1);
    }
    DcmDataset set;
    auto sequence = std::make_unique<DcmPixelSequence>(DcmTag{DCM_PixelData, EVR_OB});
    auto pixels = std::make_unique<DcmPixelData>(DcmTag{DCM_PixelData, EVR_OB});
    if (!describe(set, coded, sopClassUid_) || !append(*sequence, {}) || !append(*sequence, stream))
        return false;
    pixels->putOriginalRepresentation(syntax_.toolkitName(), nullptr, sequence.release());
    if (set.insert(pixels.release()).bad() ||
        set.chooseRepresentation(EXS_LittleEndianExplicit, nullptr).bad())
        return false;
    const Uint16* words = nullptr;
    unsigned long count = 0;
    if (set.findAndGetUint16Array(DCM_PixelData, words, &count).bad() || words == nullptr)
        return false;
    const std::size_t decoded = widened ? size_ / 2 : size_;
    if (std::size_t{count} != (decoded + 1) / 2)
        return false;
    static_assert(std::endian::native == std::endian::little);  // the toolkit has words in the host's order
    const auto* const bytes = reinterpret_cast<const unsigned char*>(words);
    if (widened) {
        for (std::size_t i = 0; i < decoded; ++i) {
            target[2 * i] = bytes[i];
            target[2 * i + 1] = 0;
        }
    } else {
        std::memcpy(target.data(), bytes, decoded);
    }
    OFString photometric;
    if (set.findAndGetOFString(DCM_PhotometricInterpretation, photometric).good())
        image_.photometric = photometric;
    Uint16 planar = image_.planarConfiguration;
    if (set.findAndGetUint16(DCM_PlanarConfiguration, planar).good())
        image_.planarConfiguration = planar;
    return true;
}

}  // namespace tessaly::decoder
