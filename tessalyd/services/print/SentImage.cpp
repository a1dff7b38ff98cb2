#include "tessalyd/services/print/SentImage.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <string_view>

#include "tessalyd/association/Service.h"
#include "tessalyd/services/print/PrintStatus.h"

namespace tessaly::tessalyd::print {

using films::AttributeSet;
using films::ImageLayout;

namespace {

std::uint16_t numberIn(const AttributeSet& item, const DcmTagKey& tag, const char* name) {
    if (!item.has(tag))
        throw RequestFailure{MissingAttribute, std::string{name} + " is missing", {tag}};
    const auto number = item.number(tag);
    if (!number)
        throw RequestFailure{InvalidAttributeValue, std::string{name} + " is no number", {tag}};
    return *number;
}

/// Two numbers from 1 on.
bool isAspectRatio(const std::string& text) {
    const std::size_t backslash = text.find('\\');
    const auto isNumber = [](std::string_view digits) {
        return !digits.empty() && digits.size() <= 6 && digits.front() != '0' &&
               std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    return backslash != std::string::npos && isNumber(std::string_view{text}.substr(0, backslash)) &&
           isNumber(std::string_view{text}.substr(backslash + 1));
}

}  // namespace

void require(bool holds, const DcmTagKey& tag, const char* comment) {
    if (!holds)
        throw RequestFailure{InvalidAttributeValue, comment, {tag}};
}

/// PS3.3, C.13.5, and grayscale of every depth up to 16 bits.
ImageLayout layoutOf(const AttributeSet& item, bool isColour) {
    ImageLayout layout{.rows = numberIn(item, DCM_Rows, "Rows"),
                       .columns = numberIn(item, DCM_Columns, "Columns"),
                       .samples = numberIn(item, DCM_SamplesPerPixel, "Samples per Pixel"),
                       .bitsAllocated = numberIn(item, DCM_BitsAllocated, "Bits Allocated"),
                       .bitsStored = numberIn(item, DCM_BitsStored, "Bits Stored")};
    const auto interpretation = item.text(DCM_PhotometricInterpretation);
    if (!interpretation)
        throw RequestFailure{
            MissingAttribute, "Photometric Interpretation is missing", {DCM_PhotometricInterpretation}};
    layout.isInverse = *interpretation == "MONOCHROME1";
    require(isColour ? *interpretation == "RGB" : layout.isInverse || *interpretation == "MONOCHROME2",
            DCM_PhotometricInterpretation, "This Photometric Interpretation is not supported");
    require(layout.samples == (isColour ? 3U : 1U), DCM_SamplesPerPixel, "Samples per Pixel is wrong");
    require(layout.rows > 0, DCM_Rows, "There are no rows");
    require(layout.columns > 0, DCM_Columns, "There are no columns");
    require(layout.bitsAllocated == 8 || (layout.bitsAllocated == 16 && !isColour), DCM_BitsAllocated,
            "Bits Allocated is wrong");
    require(layout.bitsStored >= 8 && layout.bitsStored <= layout.bitsAllocated, DCM_BitsStored,
            "Bits Stored is wrong");
    require(numberIn(item, DCM_HighBit, "High Bit") == layout.bitsStored - 1, DCM_HighBit,
            "High Bit is wrong");
    require(numberIn(item, DCM_PixelRepresentation, "Pixel Representation") == 0, DCM_PixelRepresentation,
            "Pixels with a sign are not supported");
    if (isColour) {
        const unsigned planar = numberIn(item, DCM_PlanarConfiguration, "Planar Configuration");
        require(planar <= 1, DCM_PlanarConfiguration, "Planar Configuration is wrong");
        layout.isByPlane = planar == 1;
    }
    layout.aspectRatio = item.text(DCM_PixelAspectRatio).value_or("");
    require(layout.aspectRatio.empty() || isAspectRatio(layout.aspectRatio), DCM_PixelAspectRatio,
            "Pixel Aspect Ratio is wrong");
    return layout;
}

films::PresentationLut lutOf(const AttributeSet& attributes) {
    films::PresentationLut lut;
    const auto* const items = attributes.items(DCM_PresentationLUTSequence);
    if (items != nullptr && !items->empty()) {
        const AttributeSet& item = items->front();
        const auto descriptor = item.numbers(DCM_LUTDescriptor);
        require(descriptor.size() == 3 && descriptor[1] == 0, DCM_LUTDescriptor, "LUT Descriptor is wrong");
        const std::size_t entries = descriptor[0] == 0 ? 65536 : descriptor[0];
        lut.table = {.values = item.numbers(DCM_LUTData), .bits = descriptor[2]};
        require(lut.table.bits >= 8 && lut.table.bits <= 16, DCM_LUTDescriptor,
                "The LUT's values have no such depth");
        require(entries > 1 && lut.table.values.size() >= entries, DCM_LUTData, "The LUT has too few values");
        lut.table.values.resize(entries);
        const std::uint32_t most = (1U << lut.table.bits) - 1;
        require(*std::max_element(lut.table.values.begin(), lut.table.values.end()) <= most, DCM_LUTData,
                "The LUT has a value of more bits");
        lut.explanation = item.text(DCM_LUTExplanation).value_or("").substr(0, 64);
    } else if (const auto shape = attributes.text(DCM_PresentationLUTShape)) {
        require(*shape == "IDENTITY" || *shape == "LIN OD", DCM_PresentationLUTShape,
                "This Presentation LUT Shape is not supported");
        lut.shape = *shape;
    } else {
        throw RequestFailure{
            MissingAttribute, "The Presentation LUT has neither shape nor table", {DCM_PresentationLUTShape}};
    }
    return lut;
}

}  // namespace tessaly::tessalyd::print
