#include "decoder/DeflatedLayout.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <vector>

#include "dicom/data/AttributeReader.h"
#include "dicom/data/ElementWalk.h"
#include "dicom/data/Inflater.h"
#include "dicom/data/ObjectHeader.h"

namespace tessaly::decoder {

namespace {

constexpr std::size_t BlockSize = std::size_t{32} << 10U;

/// Counts the elements, and ends the walk at the pixel data.
class PixelSearch final : public dicom::ElementVisitor {
  public:
    [[nodiscard]] bool element(const dicom::ElementHead& head) override {
        ++elements;
        if (head.depth > 0 || head.tag != DCM_PixelData)
            return true;
        pixelLength = head.length;
        return false;
    }
    void value(std::span<const char> /*piece*/) override {}

    std::size_t elements = 0;
    std::optional<std::uint32_t> pixelLength;
};

class Reader {
  public:
    bool take(std::span<const char> bytes) {
        taken_ += bytes.size();
        return attributes_.take(bytes) || taken_ > dicom::LongestHeader;
    }

    [[nodiscard]] std::optional<ObjectLayout> layout(dicom::Inflater::State state) const {
        using State = dicom::Inflater::State;
        if (state != State::Enough && state != State::Ended)
            return std::nullopt;
        if (!attributes_.isDone() && state == State::Enough)
            return std::nullopt;
        attributes_.finish();
        ObjectLayout layout;
        layout.identity = identity();
        layout.elements = search_.elements;
        layout.end = taken_;
        if (!search_.pixelLength)
            return layout;
        if (*search_.pixelLength == dicom::ElementHead::Undefined)
            return std::nullopt;
        layout.pixels = {.at = taken_, .valueAt = taken_, .end = taken_ + *search_.pixelLength};
        layout.end = layout.pixels->end;
        return layout;
    }

  private:
    [[nodiscard]] std::string text(const DcmTagKey& tag) const {
        const auto* const value = attributes_.find(tag);
        std::string found = value == nullptr ? std::string{} : value->bytes;
        while (!found.empty() && (found.back() == '\0' || found.back() == ' '))
            found.pop_back();
        return found.erase(0, found.find_first_not_of(' '));
    }

    [[nodiscard]] Identity identity() const {
        return {.sopClassUid = text(DCM_SOPClassUID),
                .sopInstanceUid = text(DCM_SOPInstanceUID),
                .studyInstanceUid = text(DCM_StudyInstanceUID),
                .seriesInstanceUid = text(DCM_SeriesInstanceUID)};
    }

    PixelSearch search_;
    dicom::AttributeReader attributes_{
        dicom::TransferSyntax{EXS_LittleEndianExplicit},
        {DCM_SOPClassUID, DCM_SOPInstanceUID, DCM_StudyInstanceUID, DCM_SeriesInstanceUID},
        DcmTagKey{0xffff, 0xffff},
        &search_};
    std::size_t taken_ = 0;
};

}  // namespace

std::optional<ObjectLayout> readDeflatedLayout(const dicom::FileWindow::ReadAt& readAt, std::size_t size) {
    Reader reader;
    dicom::Inflater inflater;
    std::vector<char> block(BlockSize);
    try {
        for (std::size_t at = 0; at < size && inflater.state() == dicom::Inflater::State::Open;) {
            const std::span part = std::span{block}.first(std::min(block.size(), size - at));
            readAt(at, part);
            at += part.size();
            inflater.inflate(part, [&reader](std::span<const char> bytes) { return reader.take(bytes); });
        }
        return reader.layout(inflater.state());
    } catch (const dicom::HeaderFault&) {
        return std::nullopt;
    }
}

}  // namespace tessaly::decoder
