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
#include "tessalyd/services/print/SentImage.h"

namespace tessaly::tessalyd::print {

namespace {

using films::AttributeSet;

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
    const bool hasImage = items != nullptr && !items->empty();
    require(items != nullptr && items->size() <= 1, sequence, "There is more than one image");
    const films::SentSettings sent = sentSettings(films::SettingsOf::Image, attributes, state_.printer);
    bool isLutUnusable = false;
    std::string lut = lutFor(attributes, isLutUnusable);
    std::uint16_t status = sent.hasUnusable || isLutUnusable ? AttributeOutOfRange : Success;
    films::FilmImage image;
    image.settings = sent.settings;
    image.lut = std::move(lut);
    if (hasImage) {
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
    films::PresentationLut lut = lutOf(attributes);
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
