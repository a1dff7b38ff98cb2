#include "tessalyd/forwarding/composing/Look.h"

#include <algorithm>
#include <cmath>

namespace tessaly::tessalyd::composing {

namespace {

/// The sequence's item in the frame's functional group, or in the one that all frames share, or what the
/// image says without any; null if none has it.
const Header* groupOf(const Header& image, const DcmTagKey& sequence, std::size_t frame) {
    for (const Header* const groups : {image.item(DCM_PerFrameFunctionalGroupsSequence, frame),
                                       image.item(DCM_SharedFunctionalGroupsSequence)})
        if (groups != nullptr)
            if (const Header* const group = groups->item(sequence))
                return group;
    return nullptr;
}

std::int64_t valueOf(std::uint16_t word, bool isSigned) {
    return isSigned ? std::int64_t{static_cast<std::int16_t>(word)} : std::int64_t{word};
}

std::optional<std::pair<std::int64_t, std::int64_t>> paddingOf(const Header& image, bool isSigned) {
    const auto value = image.word(DCM_PixelPaddingValue);
    if (!value)
        return std::nullopt;
    const auto limit = image.word(DCM_PixelPaddingRangeLimit).value_or(*value);
    return std::minmax(valueOf(*value, isSigned), valueOf(limit, isSigned));
}

}  // namespace

double Table::of(double value) const {
    const double index = std::clamp(std::floor(value + 0.5) - static_cast<double>(first), 0.0,
                                    static_cast<double>(values.size() - 1));
    return values[static_cast<std::size_t>(index)];
}

double Window::of(double value) const {
    if (function == WindowFunction::Sigmoid)
        return 1 / (1 + std::exp(-4 * (value - centre) / width));
    const bool isExact = function == WindowFunction::LinearExact;
    const double middle = isExact ? centre : centre - 0.5;
    const double span = isExact ? width : width - 1;
    if (value <= middle - span / 2)
        return 0;
    if (value > middle + span / 2)
        return 1;
    return (value - middle) / span + 0.5;
}

double Look::of(double stored, const std::pair<double, double>& range) const {
    const double value = modality.of(stored);
    double seen = 0;
    if (voi.table)
        seen = std::min(voi.table->of(value) / voi.table->greatest(), 1.0);
    else if (voi.window)
        seen = voi.window->of(value);
    else if (range.second > range.first)
        seen = std::clamp((value - range.first) / (range.second - range.first), 0.0, 1.0);
    if (presentation)
        seen = std::min(presentation->of(seen * static_cast<double>(presentation->values.size() - 1)) /
                            presentation->greatest(),
                        1.0);
    return isInverse ? 1 - seen : seen;
}

std::optional<Table> tableOf(const Header* item, bool isSigned, const DcmTagKey& descriptor,
                             const DcmTagKey& data) {
    if (item == nullptr)
        return std::nullopt;
    const auto described = item->words(descriptor);
    if (described.size() != 3)
        return std::nullopt;
    const std::size_t count = described[0] == 0 ? std::size_t{65536} : described[0];
    Table table{.values = item->words(data), .bits = described[2]};
    if (table.bits == 0 || table.bits > 16)
        return std::nullopt;
    const DcmEVR vr = item->representation(descriptor);
    table.first = valueOf(described[1], vr == EVR_SS || (vr != EVR_US && isSigned));
    if (const auto bytes = item->bytes(data); table.bits <= 8 && bytes.size() < 2 * count) {
        table.values.clear();  // two entries in each word
        for (const char byte : bytes)
            table.values.push_back(static_cast<unsigned char>(byte));
    }
    if (table.values.size() < count)
        return std::nullopt;
    table.values.resize(count);
    return table;
}

std::optional<Modality> modalityOf(const Header& header, bool isSigned) {
    if (auto table = tableOf(header.item(DCM_ModalityLUTSequence), isSigned))
        return Modality{.table = std::move(table)};
    const auto slope = header.decimal(DCM_RescaleSlope);
    const auto intercept = header.decimal(DCM_RescaleIntercept);
    if (!slope && !intercept)
        return std::nullopt;
    return Modality{.table = {}, .slope = slope.value_or(1), .intercept = intercept.value_or(0)};
}

ValuesOfInterest voiOf(const Header& header, bool isSigned) {
    const auto centre = header.decimal(DCM_WindowCenter);
    const auto width = header.decimal(DCM_WindowWidth);
    const auto function = header.text(DCM_VOILUTFunction);
    Window window{.centre = centre.value_or(0), .width = width.value_or(0)};
    if (function == "SIGMOID")
        window.function = WindowFunction::Sigmoid;
    else if (function == "LINEAR_EXACT")
        window.function = WindowFunction::LinearExact;
    const bool isUsable = window.function == WindowFunction::Linear ? window.width >= 1 : window.width > 0;
    if (centre && width && isUsable)
        return {.table = {}, .window = window};
    return {.table = tableOf(header.item(DCM_VOILUTSequence), isSigned), .window = {}};
}

Look lookOf(const Header& image, const decoder::ImageDescription& pixels, std::size_t frame) {
    const bool isSigned = pixels.pixelRepresentation == 1;
    Look look;
    const Header* const transformation = groupOf(image, DCM_PixelValueTransformationSequence, frame);
    look.modality =
        modalityOf(transformation == nullptr ? image : *transformation, isSigned).value_or(Modality{});
    const Header* const voi = groupOf(image, DCM_FrameVOILUTSequence, frame);
    const bool mayBeNegative = isSigned || (!look.modality.table && look.modality.intercept < 0);
    look.voi = voiOf(voi == nullptr ? image : *voi, mayBeNegative);
    look.isInverse = pixels.photometric == "MONOCHROME1";
    look.padding = paddingOf(image, isSigned);
    look.shutter = shutterOf(image);
    return look;
}

}  // namespace tessaly::tessalyd::composing
