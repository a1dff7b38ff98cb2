// The part of PrintService that answers for what is on a film: image boxes, annotation boxes, LUTs.

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>
#include <array>

#include "tessalyd/association/Association.h"
#include "tessalyd/forwarding/films/BoxFit.h"
#include "tessalyd/services/print/PrintService.h"
#include "tessalyd/services/print/PrintStatus.h"

namespace tessaly::tessalyd::print {

namespace {

using films::AttributeSet;
using films::ImageLayout;

std::uint16_t numberIn(const AttributeSet& item, const DcmTagKey& tag, const char* name) {
    if (!item.has(tag))
        throw RequestFailure{MissingAttribute, std::string{name} + " is missing", {tag}};
    const auto number = item.number(tag);
    if (!number)
        throw RequestFailure{InvalidAttributeValue, std::string{name} + " is no number", {tag}};
    return *number;
}

void require(bool holds, const DcmTagKey& tag, const char* comment) {
    if (!holds)
        throw RequestFailure{InvalidAttributeValue, comment, {tag}};
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

void requirePosition(const AttributeSet& sent, const DcmTagKey& tag, unsigned position, const char* comment) {
    require(sent.number(tag) == position, tag, comment);
}

}  // namespace

PrintService::Answer PrintService::setImage(const Request& request, Association& association) {
    PixelFile pixels{spool_};
    const AttributeSet attributes = receive(request, association, &pixels);
    const auto place = state_.imageBoxes.find(request.command.sopInstanceUid());
    const bool isColour = request.command.sopClassUid() == UID_BasicColorImageBoxSOPClass;
    if (place == state_.imageBoxes.end() || state_.films.at(place->second.film).isColour != isColour)
        throw RequestFailure{NoSuchInstance, "There is no such image box"};
    const unsigned position = place->second.position;
    PrintState::FilmBox& box = state_.films.at(place->second.film);
    if (!attributes.has(DCM_ImageBoxPosition))
        throw RequestFailure{MissingAttribute, "Image Box Position is missing", {DCM_ImageBoxPosition}};
    requirePosition(attributes, DCM_ImageBoxPosition, position, "Image Box Position is not that of the box");
    const DcmTagKey sequence = isColour ? DCM_BasicColorImageSequence : DCM_BasicGrayscaleImageSequence;
    if (!attributes.has(sequence))
        throw RequestFailure{MissingAttribute, "The image sequence is missing", {sequence}};
    const auto* const items = attributes.items(sequence);
    require(items != nullptr && items->size() <= 1, sequence, "There is more than one image");
    const films::SentSettings sent = sentSettings(films::SettingsOf::Image, attributes, state_.printer);
    bool isLutUnusable = false;
    std::string lut = lutFor(attributes, isLutUnusable);
    std::uint16_t status = sent.hasUnusable || isLutUnusable ? AttributeOutOfRange : Success;
    films::FilmImage image;
    image.settings = sent.settings;
    image.lut = std::move(lut);
    if (!items->empty()) {
        image.layout = layoutOf(items->front(), isColour);
        if (image.layout.bytes() > PixelFile::MostBytes || pixels.size() > PixelFile::MostBytes)
            throw RequestFailure{NoRoomForImage, "The image has more than 64 MB"};
        require(pixels.size() >= image.layout.bytes(), DCM_PixelData, "There are too few pixels");
        if (pixels.hasFailed())
            throw RequestFailure{NoRoomForImage, "There is no room for the image"};
        const films::PixelSize size = films::sizeInBox(
            image.layout, position, box.format,
            settingsThatHold(films::SettingsOf::Film, box.film.settings, state_.printer), state_.printer);
        if (size.rows != image.layout.rows || size.columns != image.layout.columns) {
            const auto behaviour = sent.settings.find(DCM_RequestedDecimateCropBehavior);
            if (behaviour != sent.settings.end() && behaviour->second == "FAIL")
                throw RequestFailure{ImageLargerThanBox, "The image is larger than its box"};
            if (status == Success)
                status = ImageReduced;
        }
        image.file = pixels.keep();
    }
    if (const auto former = box.film.images.find(position); former != box.film.images.end()) {
        spool_.remove(former->second.file);
        box.film.images.erase(former);
    }
    Answer answer{.status = status};
    if (status != Success) {
        answer.dataSet = std::make_unique<DcmDataset>();
        films::put(settingsForResponse(films::SettingsOf::Image, image.settings, state_.printer),
                   *answer.dataSet);
        answer.dataSet->putAndInsertUint16(DCM_ImageBoxPosition, static_cast<Uint16>(position));
    }
    if (!image.file.empty())
        box.film.images.emplace(position, std::move(image));
    return answer;
}

PrintService::Answer PrintService::setAnnotation(const Request& request, Association& association) {
    const AttributeSet attributes = receive(request, association);
    const auto place = state_.annotationBoxes.find(request.command.sopInstanceUid());
    if (place == state_.annotationBoxes.end())
        throw RequestFailure{NoSuchInstance, "There is no such annotation box"};
    if (attributes.has(DCM_AnnotationPosition))
        requirePosition(attributes, DCM_AnnotationPosition, place->second.position,
                        "Annotation Position is not that of the box");
    constexpr std::size_t Longest = 256;  // 64 characters, whatever their set
    const std::string text = attributes.text(DCM_TextString).value_or("");
    if (text.size() > Longest)
        return {.status = AttributeOutOfRange};
    auto& annotations = state_.films.at(place->second.film).film.annotations;
    if (text.empty())
        annotations.erase(place->second.position);
    else
        annotations.insert_or_assign(
            place->second.position,
            films::FilmAnnotation{.text = text,
                                  .characterSet = attributes.text(DCM_SpecificCharacterSet).value_or("")});
    return {};
}

PrintService::Answer PrintService::createLut(const Request& request, Association& association) {
    const AttributeSet attributes = receive(request, association);
    requirePrinter(association);
    if (state_.luts.size() >= PrintState::MostLuts)
        throw RequestFailure{ResourceLimitation, "There are too many Presentation LUTs"};
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
    const std::string uid = nameOf(request);
    auto dataSet = std::make_unique<DcmDataset>();
    if (!lut.shape.empty()) {
        dataSet->putAndInsertString(DCM_PresentationLUTShape, lut.shape.c_str());
    } else if (DcmItem* item = nullptr;
               dataSet->findOrCreateSequenceItem(DCM_PresentationLUTSequence, item).good()) {
        const auto& values = lut.table.values;
        const std::array<Uint16, 3> descriptor{static_cast<Uint16>(values.size()), 0,
                                               static_cast<Uint16>(lut.table.bits)};
        item->putAndInsertUint16Array(DcmTag{DCM_LUTDescriptor, EVR_US}, descriptor.data(),
                                      descriptor.size());
        if (!lut.explanation.empty())
            item->putAndInsertString(DCM_LUTExplanation, lut.explanation.c_str());
        item->putAndInsertUint16Array(DcmTag{DCM_LUTData, EVR_OW}, values.data(), values.size());
    }
    state_.luts.emplace(uid, std::move(lut));
    return {.instance = uid, .dataSet = std::move(dataSet)};
}

PrintService::Answer PrintService::deleteLut(const Request& request, Association& association) {
    static_cast<void>(receive(request, association));
    if (state_.luts.erase(request.command.sopInstanceUid()) == 0)
        throw RequestFailure{NoSuchInstance, "There is no such Presentation LUT"};
    return {};
}

}  // namespace tessaly::tessalyd::print
