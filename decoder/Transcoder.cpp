#include "decoder/Transcoder.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>
#include <dcmtk/dcmdata/dcvrobow.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "decoder/FrameDecoder.h"
#include "decoder/ObjectLayout.h"
#include "decoder/PixelWriter.h"
#include "decoder/Syntaxes.h"
#include "dicom/data/DataSetWalk.h"
#include "dicom/data/ElementWalk.h"
#include "dicom/data/Inflater.h"
#include "dicom/data/SinkStream.h"

namespace tessaly::decoder {

namespace {

std::span<const char> chars(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// An element that is longer than all that there is: the toolkit takes the memory before it looks for the
/// bytes.
class LengthCheck final : public dicom::ElementVisitor {
  public:
    explicit LengthCheck(std::size_t most) : most_(most) {}
    [[nodiscard]] bool element(const dicom::ElementHead& head) override {
        isExceeded_ = isExceeded_ || (head.length != dicom::ElementHead::Undefined && head.length > most_);
        return !isExceeded_;
    }
    void value(std::span<const char> /*piece*/) override {}
    [[nodiscard]] bool isExceeded() const noexcept { return isExceeded_; }

  private:
    std::size_t most_;
    bool isExceeded_ = false;
};

/// However the bytes are understood where that can be done in several ways.
bool exceedsLength(Bytes bytes, dicom::TransferSyntax syntax) {
    using Reading = dicom::ElementWalk::Reading;
    for (const Reading reading : {Reading::ByRepresentation, Reading::ByContent, Reading::Enclosed}) {
        LengthCheck check{bytes.size()};
        dicom::ElementWalk walk{syntax, reading, check};
        walk.take(chars(bytes));
        if (check.isExceeded())
            return true;
    }
    return false;
}

bool parse(DcmDataset& set, Bytes bytes, dicom::TransferSyntax syntax) {
    if (bytes.empty())
        return true;
    if (dicom::exceedsNestingLimit(chars(bytes), syntax) || exceedsLength(bytes, syntax))
        return false;
    DcmInputBufferStream in;
    in.setBuffer(bytes.data(), static_cast<offile_off_t>(bytes.size()));
    in.setEos();
    set.transferInit();
    const OFCondition parsed = set.read(in, syntax.toolkitName());
    set.transferEnd();
    return parsed.good();
}

/// What is decoded is described anew where decoding has changed it.
bool describe(DcmItem& item, const ImageDescription& before, const ImageDescription& after) {
    if (after.photometric != before.photometric &&
        item.putAndInsertString(DCM_PhotometricInterpretation, after.photometric.c_str()).bad())
        return false;
    return after.planarConfiguration == before.planarConfiguration ||
           item.putAndInsertUint16(DCM_PlanarConfiguration, after.planarConfiguration).good();
}

std::string text(DcmItem& item, const DcmTagKey& tag) {
    OFString value;
    item.findAndGetOFString(tag, value);
    return value;
}

ImageDescription description(DcmItem& item) {
    ImageDescription image;
    for (const auto& [tag, value] : {std::pair{DCM_SamplesPerPixel, &image.samplesPerPixel},
                                     {DCM_PlanarConfiguration, &image.planarConfiguration},
                                     {DCM_Rows, &image.rows},
                                     {DCM_Columns, &image.columns},
                                     {DCM_BitsAllocated, &image.bitsAllocated},
                                     {DCM_BitsStored, &image.bitsStored},
                                     {DCM_HighBit, &image.highBit},
                                     {DCM_PixelRepresentation, &image.pixelRepresentation}})
        item.findAndGetUint16(tag, *value);
    image.photometric = text(item, DCM_PhotometricInterpretation);
    return image;
}

std::optional<Fragments> fragmentsOf(DcmPixelSequence& sequence) {
    Fragments fragments;
    for (unsigned long i = 1; i < sequence.card(); ++i) {  // the first is the offset table
        DcmPixelItem* item = nullptr;
        Uint8* bytes = nullptr;
        if (sequence.getItem(item, i).bad())
            return std::nullopt;
        const std::size_t size = item->getLength();
        if (size > 0 && (item->getUint8Array(bytes).bad() || bytes == nullptr))
            return std::nullopt;
        fragments.parts.emplace_back(bytes, size);
    }
    return fragments;
}

/// One object on its way from one syntax to another.
class Transcoder {
  public:
    Transcoder(Bytes dataSet, dicom::TransferSyntax from, dicom::TransferSyntax to, const Write& write)
        : bytes_(dataSet), from_(from), to_(to), write_(write) {}

    bool run() {
        if (from_.isDeflated() && !inflate())
            return false;
        dicom::FileWindow window{bytes_.size(), [this](std::size_t offset, std::span<char> target) {
                                     std::memcpy(target.data(), bytes_.data() + offset, target.size());
                                 }};
        auto layout = readLayout(window, bytes_.size(), from_);
        if (!layout || !isNative(to_) || (!isNative(from_) && !isDecodable(from_)))
            return false;
        layout_ = std::move(*layout);
        const auto& pixels = layout_.pixels;
        const std::size_t cut = pixels ? pixels->at : layout_.end;
        const std::size_t behind = pixels ? pixels->end : layout_.end;
        if (!parse(before_, bytes_.first(cut), from_) ||
            !parse(behind_, bytes_.subspan(behind, layout_.end - behind), from_))
            return false;
        sort();
        if (layout_.hasNestedFragments && !(decodeNested(before_) && decodeNested(behind_)))
            return false;
        if (!pixels)
            return writeTree(before_) && writeTree(behind_);
        return pixels->isEncapsulated ? writeDecoded() : writeNative();
    }

  private:
    /// Makes the data set what its elements are read by. Twice, so that it has exactly the memory it needs.
    bool inflate() {
        std::size_t size = 0;
        const auto pass = [this](const dicom::Inflater::Take& take) {
            dicom::Inflater inflater;
            return inflater.inflate(chars(bytes_), take) == dicom::Inflater::State::Ended;
        };
        if (!pass([&size](std::span<const char> part) {
                size += part.size();
                return false;
            }))
            return false;
        inflated_.reserve(size);
        if (!pass([this](std::span<const char> part) {
                inflated_.insert(inflated_.end(), part.begin(), part.end());
                return false;
            }))
            return false;
        bytes_ = inflated_;
        from_ = EXS_LittleEndianExplicit;
        return true;
    }

    /// Elements may come in any order; they are written in theirs.
    void sort() {
        const auto move = [](DcmDataset& from, DcmDataset& to, bool isBefore) {
            for (unsigned long i = from.card(); i-- > 0;) {
                const DcmTagKey tag = from.getElement(i)->getTag();
                if ((tag < DCM_PixelData) != isBefore)
                    continue;
                std::unique_ptr<DcmElement> element{from.remove(i)};
                if (to.insert(element.get()).good())  // or there is one already
                    static_cast<void>(element.release());
            }
        };
        move(behind_, before_, true);
        move(before_, behind_, false);
        // What tells of the pixel data's own length or fragments holds no more.
        for (const DcmTagKey& tag :
             {DcmTagKey{0x7fe0, 0x0000}, DcmTagKey{0x7fe0, 0x0001}, DcmTagKey{0x7fe0, 0x0002}})
            const std::unique_ptr<DcmElement> gone{before_.remove(tag)};
    }

    bool writeTree(DcmDataset& set) {
        if (set.card() == 0)
            return true;
        if (!set.canWriteXfer(to_.toolkitName()))
            return false;
        dicom::SinkStream stream{[this](std::span<const char> block) {
            write_({reinterpret_cast<const unsigned char*>(block.data()), block.size()});
        }};
        set.transferInit();
        const OFCondition written =
            set.write(stream, to_.toolkitName(), EET_ExplicitLength, nullptr, EGL_recalcGL, EPD_noChange);
        set.transferEnd();
        stream.rethrow();
        return written.good();
    }

    void writePixelHeader(std::array<char, 2> vr, std::uint64_t length) {
        std::vector<unsigned char> header;
        const bool isLittle = to_.isLittleEndian();
        const auto put = [&header, isLittle](std::uint64_t value, unsigned size) {
            for (unsigned i = 0; i < size; ++i)
                header.push_back(static_cast<unsigned char>(value >> 8U * (isLittle ? i : size - 1 - i)));
        };
        put(DCM_PixelData.getGroup(), 2);
        put(DCM_PixelData.getElement(), 2);
        if (to_.hasVrs()) {
            header.push_back(static_cast<unsigned char>(vr[0]));
            header.push_back(static_cast<unsigned char>(vr[1]));
            put(0, 2);
        }
        put(length, 4);
        write_(header);
    }

    bool writeNative() {
        const auto& pixels = *layout_.pixels;
        const Bytes value = bytes_.subspan(pixels.valueAt, pixels.end - pixels.valueAt);
        if (value.size() % 2 != 0 || !writeTree(before_))
            return false;
        const bool hasBytes = pixels.vr == std::array{'O', 'B'};
        writePixelHeader(hasBytes ? pixels.vr : std::array{'O', 'W'}, value.size());
        const bool swaps = !hasBytes && from_.isLittleEndian() != to_.isLittleEndian();
        PixelWriter pixelWriter{write_, value.size() * 8, swaps};
        pixelWriter.add(value);
        pixelWriter.finish();
        return writeTree(behind_);
    }

    bool writeDecoded() {
        const auto& pixels = *layout_.pixels;
        const ImageDescription& image = layout_.image;
        const auto size = image.size();
        auto fragments = readFragments(bytes_.subspan(pixels.valueAt, pixels.end - pixels.valueAt));
        if (!size || !fragments)
            return false;
        fragments->extendedOffsets = bytes_.subspan(layout_.extendedOffsets.at, layout_.extendedOffsets.size);
        FrameDecoder decoder{image, from_, layout_.identity.sopClassUid};
        const auto frames = splitFrames(*fragments, image.frames, decoder.streamsEnd());
        std::vector<unsigned char> frame;
        if (!frames || !decoder.decode(frames->front(), frame) ||
            !describe(before_, image, decoder.image()) || !writeTree(before_))
            return false;
        writePixelHeader({'O', 'W'}, *size + *size % 2);
        const std::string photometric = decoder.image().photometric;
        PixelWriter pixelWriter{write_, image.frameBits(), !to_.isLittleEndian()};
        for (std::size_t i = 0; i < frames->size(); ++i) {
            if (i > 0 && !decoder.decode((*frames)[i], frame))
                return false;
            if (decoder.image().photometric != photometric)
                return false;
            pixelWriter.add(frame);
        }
        pixelWriter.finish();
        return writeTree(behind_);
    }

    /// Compressed images inside sequences, such as icons: few and small, and decoded into the tree.
    bool decodeNested(DcmDataset& set) {
        DcmStack stack;
        while (set.search(DCM_PixelData, stack, ESM_afterStackTop, OFTrue).good()) {
            auto* const pixels = dynamic_cast<DcmPixelData*>(stack.top());
            auto* const item = dynamic_cast<DcmItem*>(stack.elem(1));
            if (pixels == nullptr || item == nullptr)
                return false;
            DcmPixelSequence* sequence = nullptr;
            if (pixels->getEncapsulatedRepresentation(from_.toolkitName(), nullptr, sequence).bad() ||
                sequence == nullptr)
                continue;  // native already
            if (!decodeNested(*item, *sequence))
                return false;
            stack.clear();  // the element has been replaced
        }
        return true;
    }

    bool decodeNested(DcmItem& item, DcmPixelSequence& sequence) {
        const ImageDescription image = description(item);
        const auto fragments = fragmentsOf(sequence);
        const auto size = image.size();
        if (!fragments || fragments->parts.empty() || !size || nested_ + *size > MostNestedPixels)
            return false;
        nested_ += *size;
        FrameDecoder decoder{image, from_, layout_.identity.sopClassUid};
        std::vector<unsigned char> frame;
        if (!decoder.decode(fragments->parts, frame) || !describe(item, image, decoder.image()))
            return false;
        frame.resize(frame.size() + frame.size() % 2);
        std::vector<Uint16> words(frame.size() / 2);
        std::memcpy(words.data(), frame.data(), frame.size());
        return item.putAndInsertUint16Array(DCM_PixelData, words.data(), words.size()).good();
    }

    std::vector<unsigned char> inflated_;
    Bytes bytes_;
    dicom::TransferSyntax from_;
    dicom::TransferSyntax to_;
    const Write& write_;
    ObjectLayout layout_;
    DcmDataset before_;  // of the elements before the pixel data
    DcmDataset behind_;
    std::uint64_t nested_ = 0;
};

}  // namespace

bool convert(Bytes dataSet, dicom::TransferSyntax from, dicom::TransferSyntax to, const Write& write) {
    return Transcoder{dataSet, from, to, write}.run();
}

}  // namespace tessaly::decoder
