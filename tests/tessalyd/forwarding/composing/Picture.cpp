#include "tests/tessalyd/forwarding/composing/Picture.h"

#include <dcmtk/dcmdata/dcuid.h>

#include <cmath>
#include <stdexcept>

namespace tessaly::test {

namespace {

double entryOf(const PictureTable& table, double value) {
    const double index = std::round(value) - table.first;
    const auto last = static_cast<double>(table.values.size() - 1);
    return table.values[static_cast<std::size_t>(index < 0 ? 0 : index > last ? last : index)];
}

void putTable(DcmDataset& set, const DcmTagKey& sequence, const PictureTable& table) {
    DcmItem* item = nullptr;
    if (set.findOrCreateSequenceItem(sequence, item).bad())
        throw std::runtime_error{"no item"};
    const std::array<Uint16, 3> descriptor{static_cast<Uint16>(table.values.size()),
                                           static_cast<Uint16>(table.first), static_cast<Uint16>(table.bits)};
    const DcmEVR vr = table.first < 0 ? EVR_SS : EVR_US;
    if (vr == EVR_SS)
        item->putAndInsertSint16Array(DcmTag{DCM_LUTDescriptor, vr},
                                      reinterpret_cast<const Sint16*>(descriptor.data()), 3);
    else
        item->putAndInsertUint16Array(DcmTag{DCM_LUTDescriptor, vr}, descriptor.data(), 3);
    item->putAndInsertUint16Array(DcmTag{DCM_LUTData, EVR_US}, table.values.data(), table.values.size());
}

void put(DcmItem& set, const DcmTagKey& tag, std::optional<double> value) {
    if (value)
        set.putAndInsertString(tag, std::to_string(*value).substr(0, 16).c_str());
}

int byteOf(double value, double most) {
    const double byte = std::floor(value / most * 255 + 0.5);
    return static_cast<int>(byte < 0 ? 0 : byte > 255 ? 255 : byte);
}

}  // namespace

int Picture::value(int frame, int row, int column, int sample) const {
    const int range = 1 << stored;
    if (photometric == "YBR_FULL_422" && sample > 0)
        column -= column % 2;  // both of a pair have one colour
    const int value =
        (row * 131 + column * 37 + frame * 977 + sample * 59 + row * column * 3 + number * 11) % range;
    if (padding && (row + column) % 5 == 0)
        return *padding;
    return isSigned ? value - range / 2 : value;
}

double Picture::meant(int value) const {
    if (modality)
        return entryOf(*modality, value);
    return value * slope.value_or(1) + intercept.value_or(0);
}

/// PS3.3, C.11.2.1.2 and C.11.2.1.3, with y from 0 to 1.
double Picture::seen(double x, int frame) const {
    if (centre && width) {
        const double c = *centre;
        const double w = *width;
        if (function == "SIGMOID")
            return 1 / (1 + std::exp(-4 * (x - c) / w));
        if (function == "LINEAR_EXACT")
            return x <= c - w / 2 ? 0 : x > c + w / 2 ? 1 : (x - c) / w + 0.5;
        return x <= c - 0.5 - (w - 1) / 2  ? 0
               : x > c - 0.5 + (w - 1) / 2 ? 1
                                           : (x - (c - 0.5)) / (w - 1) + 0.5;
    }
    if (voi)
        return entryOf(*voi, x) / ((1 << voi->bits) - 1);
    double least = 1e300;
    double most = -1e300;
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column) {
            const int each = value(frame, row, column);
            if (padding && each == *padding)
                continue;
            least = std::fmin(least, meant(each));
            most = std::fmax(most, meant(each));
        }
    const double y = (x - least) / (most - least);
    return y < 0 ? 0 : y > 1 ? 1 : y;
}

int Picture::gray(int frame, int row, int column) const {
    const double y = seen(meant(value(frame, row, column)), frame);
    return static_cast<int>(std::floor((photometric == "MONOCHROME1" ? 1 - y : y) * 4095 + 0.5));
}

std::array<int, 3> Picture::colour(int frame, int row, int column) const {
    if (photometric == "PALETTE COLOR") {
        std::array<int, 3> made{};
        for (std::size_t i = 0; i < 3; ++i)
            made[i] = byteOf(entryOf(palette[i], value(frame, row, column)), (1 << palette[i].bits) - 1);
        return made;
    }
    const double most = (1 << stored) - 1;
    std::array<double, 3> of{};
    for (int i = 0; i < 3; ++i)
        of[static_cast<std::size_t>(i)] = value(frame, row, column, i);
    if (photometric == "RGB")
        return {byteOf(of[0], most), byteOf(of[1], most), byteOf(of[2], most)};
    const double blue = of[1] - 128;
    const double red = of[2] - 128;
    return {byteOf(of[0] + 1.402 * red, 255), byteOf(of[0] - 0.344136 * blue - 0.714136 * red, 255),
            byteOf(of[0] + 1.772 * blue, 255)};
}

QByteArray Picture::onFilm(int frame) const {
    if (isColour())
        return onColourFilm(frame);
    QByteArray pixels;
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column) {
            const int pixel = gray(frame, row, column);
            pixels.append(static_cast<char>(pixel & 0xff));
            pixels.append(static_cast<char>(pixel >> 8));
        }
    return pixels;
}

QByteArray Picture::onFilmOfEight(int frame) const {
    QByteArray pixels;
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column)
            pixels.append(static_cast<char>(byteOf(gray(frame, row, column), 4095)));
    return pixels;
}

QByteArray Picture::onColourFilm(int frame) const {
    if (!isColour())
        return onFilmOfEight(frame).repeated(3);
    QByteArray pixels;
    for (std::size_t plane = 0; plane < 3; ++plane)
        for (int row = 0; row < rows; ++row)
            for (int column = 0; column < columns; ++column)
                pixels.append(static_cast<char>(colour(frame, row, column)[plane]));
    return pixels;
}

void Picture::putPixels(DcmDataset& set) const {
    std::vector<int> values;
    for (int frame = 0; frame < frames; ++frame) {
        if (photometric == "YBR_FULL_422") {
            for (int row = 0; row < rows; ++row)
                for (int column = 0; column < columns; column += 2)
                    values.insert(values.end(), {value(frame, row, column), value(frame, row, column + 1),
                                                 value(frame, row, column, 1), value(frame, row, column, 2)});
            continue;
        }
        for (int plane = 0; plane < (planar == 1 ? samples() : 1); ++plane)
            for (int row = 0; row < rows; ++row)
                for (int column = 0; column < columns; ++column)
                    for (int sample = 0; sample < (planar == 1 ? 1 : samples()); ++sample)
                        values.push_back(value(frame, row, column, planar == 1 ? plane : sample));
    }
    QByteArray bytes;
    if (allocated == 1) {
        bytes.fill('\0', (static_cast<qsizetype>(values.size()) + 7) / 8);
        for (std::size_t i = 0; i < values.size(); ++i)
            if (values[i] != 0)
                bytes[static_cast<qsizetype>(i / 8)] =
                    static_cast<char>(bytes[static_cast<qsizetype>(i / 8)] | 1 << (i % 8));
    } else {
        for (const int each : values)
            for (int byte = 0; byte < allocated / 8; ++byte) {
                // Beyond the stored bits anything may be.
                const unsigned mask = stored == 32 ? ~0U : (1U << static_cast<unsigned>(stored)) - 1;
                const unsigned raw = (static_cast<unsigned>(each) & mask) |
                                     (stored < allocated && !padding ? ~mask & 0x80005000U : 0U);
                bytes.append(static_cast<char>(raw >> 8 * byte));
            }
    }
    if (bytes.size() % 2 != 0)
        bytes.append('\0');
    if (allocated > 8)
        set.putAndInsertUint16Array(DCM_PixelData, reinterpret_cast<const Uint16*>(bytes.data()),
                                    static_cast<unsigned long>(bytes.size() / 2));
    else
        set.putAndInsertUint8Array(DCM_PixelData, reinterpret_cast<const Uint8*>(bytes.data()),
                                   static_cast<unsigned long>(bytes.size()));
}

std::unique_ptr<DcmFileFormat> Picture::object() const {
    auto file = std::make_unique<DcmFileFormat>();
    DcmDataset& set = *file->getDataset();
    const auto text = [&set](const DcmTagKey& tag, const std::string& value) {
        if (set.putAndInsertString(tag, value.c_str()).bad())
            throw std::runtime_error{"not put"};
    };
    text(DCM_SOPClassUID, sopClass);
    text(DCM_SOPInstanceUID, uid());
    text(DCM_StudyInstanceUID, study);
    text(DCM_SeriesInstanceUID, series);
    text(DCM_SeriesNumber, std::to_string(seriesNumber));
    text(DCM_InstanceNumber, std::to_string(number));
    text(DCM_PatientID, "P1");
    text(DCM_PatientName, "Doe^Jane");
    text(DCM_StudyDate, "20260102");
    text(DCM_StudyDescription, "Whole body");
    text(DCM_Modality, "CT");
    text(DCM_PhotometricInterpretation, photometric);
    if (frames > 1)
        text(DCM_NumberOfFrames, std::to_string(frames));
    const auto number16 = [&set](const DcmTagKey& tag, int value) {
        set.putAndInsertUint16(tag, static_cast<Uint16>(value));
    };
    number16(DCM_SamplesPerPixel, samples());
    if (samples() == 3)
        number16(DCM_PlanarConfiguration, planar);
    number16(DCM_Rows, rows);
    number16(DCM_Columns, columns);
    number16(DCM_BitsAllocated, allocated);
    number16(DCM_BitsStored, stored);
    number16(DCM_HighBit, stored - 1);
    number16(DCM_PixelRepresentation, isSigned ? 1 : 0);
    if (padding && isSigned)
        set.putAndInsertSint16(DcmTag{DCM_PixelPaddingValue, EVR_SS}, static_cast<Sint16>(*padding));
    else if (padding)
        set.putAndInsertUint16(DcmTag{DCM_PixelPaddingValue, EVR_US}, static_cast<Uint16>(*padding));
    put(set, DCM_RescaleSlope, slope);
    put(set, DCM_RescaleIntercept, intercept);
    put(set, DCM_WindowCenter, centre);
    put(set, DCM_WindowWidth, width);
    if (!function.empty())
        text(DCM_VOILUTFunction, function);
    if (modality)
        putTable(set, DCM_ModalityLUTSequence, *modality);
    if (voi)
        putTable(set, DCM_VOILUTSequence, *voi);
    if (photometric == "PALETTE COLOR") {
        const std::array<std::pair<DcmTagKey, DcmTagKey>, 3> tags{
            std::pair{DCM_RedPaletteColorLookupTableDescriptor, DCM_RedPaletteColorLookupTableData},
            {DCM_GreenPaletteColorLookupTableDescriptor, DCM_GreenPaletteColorLookupTableData},
            {DCM_BluePaletteColorLookupTableDescriptor, DCM_BluePaletteColorLookupTableData}};
        for (std::size_t i = 0; i < tags.size(); ++i) {
            const std::array<Uint16, 3> descriptor{static_cast<Uint16>(palette[i].values.size()),
                                                   static_cast<Uint16>(palette[i].first),
                                                   static_cast<Uint16>(palette[i].bits)};
            set.putAndInsertUint16Array(DcmTag{tags[i].first, EVR_US}, descriptor.data(), 3);
            set.putAndInsertUint16Array(DcmTag{tags[i].second, EVR_OW}, palette[i].values.data(),
                                        palette[i].values.size());
        }
    }
    putPixels(set);
    return file;
}

}  // namespace tessaly::test
