#include "tessalyd/forwarding/composing/FrameReader.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tessalyd/forwarding/composing/Look.h"
#include "tessalyd/forwarding/images/ImageRefusal.h"

namespace tessaly::tessalyd::composing {

namespace {

using images::ImageRefusal;

constexpr unsigned BitsInByte = 8;

std::uint8_t rounded(double value, double most) {
    constexpr double Byte = 255;
    return static_cast<std::uint8_t>(std::clamp(std::floor(value * Byte / most + 0.5), 0.0, Byte));
}

}  // namespace

FrameReader::FrameReader(const images::PixelSource& source, const Header& header, std::size_t frame)
    : source_(source), image_(source.image()), kind_(kindOf()) {
    const bool isDepth = image_.bitsAllocated == 1 || image_.bitsAllocated == 8 ||
                         image_.bitsAllocated == 16 ||
                         (image_.bitsAllocated == 32 && image_.samplesPerPixel == 1);
    if (image_.rows == 0 || image_.columns == 0 || !isDepth || image_.bitsStored == 0 ||
        image_.bitsStored > image_.bitsAllocated || image_.highBit >= image_.bitsAllocated ||
        image_.highBit + 1U < image_.bitsStored)
        throw ImageRefusal{"its pixels are of a size or depth that is not known"};
    const bool isOfColours = kind_ != Kind::Gray && kind_ != Kind::Palette;
    if (isOfColours && (isSigned() || image_.bitsAllocated == 1 || image_.samplesPerPixel != 3))
        throw ImageRefusal{"its colours are of a depth that is not known"};
    const unsigned samples = kind_ == Kind::Full422 ? 2 : isOfColours ? 3 : 1;
    const std::uint64_t bits = std::uint64_t{image_.rows} * image_.columns * samples * image_.bitsAllocated;
    firstBit_ = frame * bits;
    if (firstBit_ + bits > std::uint64_t{source_.pixelBytes()} * BitsInByte)
        throw ImageRefusal{"it has less pixel data than its header says"};
    if (kind_ == Kind::Palette)
        readPalette(header);
}

FrameReader::Kind FrameReader::kindOf() const {
    const std::string& name = image_.photometric;
    if (image_.samplesPerPixel == 1)
        return name == "PALETTE COLOR" ? Kind::Palette : Kind::Gray;
    if (name == "RGB")
        return Kind::Rgb;
    if (name == "YBR_FULL")
        return Kind::Full;
    if (name == "YBR_FULL_422" && image_.columns % 2 == 0)
        return Kind::Full422;
    throw ImageRefusal{"its Photometric Interpretation is not known"};
}

void FrameReader::readPalette(const Header& header) {
    struct Place {
        DcmTagKey descriptor;
        DcmTagKey data;
        std::uint8_t Entry::*colour;
    };
    const std::array<Place, 3> places{
        Place{DCM_RedPaletteColorLookupTableDescriptor, DCM_RedPaletteColorLookupTableData, &Entry::red},
        Place{DCM_GreenPaletteColorLookupTableDescriptor, DCM_GreenPaletteColorLookupTableData,
              &Entry::green},
        Place{DCM_BluePaletteColorLookupTableDescriptor, DCM_BluePaletteColorLookupTableData, &Entry::blue}};
    for (const Place& place : places) {
        const auto table = tableOf(&header, isSigned(), place.descriptor, place.data);
        if (!table || (!palette_.empty() && palette_.size() != table->values.size()))
            throw ImageRefusal{"its palette cannot be used"};
        palette_.resize(table->values.size());
        firstEntry_ = table->first;
        for (std::size_t i = 0; i < palette_.size(); ++i)
            palette_[i].*place.colour = rounded(table->values[i], table->greatest());
    }
}

/// Samples of the frame, from the first one on.
void FrameReader::readSamples(std::uint64_t first, std::size_t count) {
    const std::uint64_t bit = firstBit_ + first * image_.bitsAllocated;
    const std::uint64_t end = bit + std::uint64_t{count} * image_.bitsAllocated;
    const std::uint64_t byte = bit / BitsInByte;
    bitInByte_ = static_cast<unsigned>(bit % BitsInByte);
    bytes_.resize(static_cast<std::size_t>((end + BitsInByte - 1) / BitsInByte - byte));
    source_.read(source_.pixelsAt() + static_cast<std::size_t>(byte), bytes_);
}

/// One of the samples that were read last.
std::int64_t FrameReader::valueAt(std::size_t index) const {
    const unsigned allocated = image_.bitsAllocated;
    if (allocated == 1) {
        const std::size_t bit = bitInByte_ + index;
        return (static_cast<unsigned char>(bytes_[bit / BitsInByte]) >> bit % BitsInByte) & 1U;
    }
    std::uint32_t raw = 0;
    const std::size_t size = allocated / BitsInByte;
    for (std::size_t i = 0; i < size; ++i)
        raw |= std::uint32_t{static_cast<unsigned char>(bytes_[index * size + i])} << BitsInByte * i;
    constexpr unsigned Width = 32;
    raw <<= Width - 1 - image_.highBit;
    const unsigned right = Width - image_.bitsStored;
    return isSigned() ? std::int64_t{static_cast<std::int32_t>(raw) >> right} : std::int64_t{raw >> right};
}

void FrameReader::readGray(std::uint32_t row, std::uint32_t column, std::span<std::int64_t> values) {
    readSamples(std::uint64_t{row} * image_.columns + column, values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = valueAt(i);
}

void FrameReader::readColour(std::uint32_t row, std::uint32_t column, std::span<std::uint8_t> values) {
    constexpr std::size_t Samples = 3;
    const std::size_t count = values.size() / Samples;
    const std::uint64_t pixel = std::uint64_t{row} * image_.columns + column;
    if (kind_ == Kind::Palette) {
        readSamples(pixel, count);
        for (std::size_t i = 0; i < count; ++i) {
            const std::int64_t last = static_cast<std::int64_t>(palette_.size()) - 1;
            const Entry& entry = palette_[static_cast<std::size_t>(
                std::clamp(valueAt(i) - firstEntry_, std::int64_t{0}, last))];
            values[Samples * i] = entry.red;
            values[Samples * i + 1] = entry.green;
            values[Samples * i + 2] = entry.blue;
        }
        return;
    }
    colours_.resize(values.size());
    if (kind_ == Kind::Full422) {
        const std::uint32_t odd = column % 2;
        readSamples((pixel - odd) * 2, (count + odd + 1) / 2 * 4);
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t pair = (i + odd) / 2 * 4;
            colours_[Samples * i] = valueAt(pair + (i + odd) % 2);
            colours_[Samples * i + 1] = valueAt(pair + 2);
            colours_[Samples * i + 2] = valueAt(pair + 3);
        }
    } else if (image_.planarConfiguration == 1) {
        for (std::size_t plane = 0; plane < Samples; ++plane) {
            readSamples(plane * std::uint64_t{image_.rows} * image_.columns + pixel, count);
            for (std::size_t i = 0; i < count; ++i)
                colours_[Samples * i + plane] = valueAt(i);
        }
    } else {
        readSamples(pixel * Samples, values.size());
        for (std::size_t i = 0; i < values.size(); ++i)
            colours_[i] = valueAt(i);
    }
    convert(values);
}

/// Of PS3.3, C.7.6.3.1.2.
void FrameReader::convert(std::span<std::uint8_t> values) const {
    const auto most = static_cast<double>((std::uint64_t{1} << image_.bitsStored) - 1);
    if (kind_ == Kind::Rgb) {
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = rounded(static_cast<double>(colours_[i]), most);
        return;
    }
    const auto middle = static_cast<double>(std::uint64_t{1} << (image_.bitsStored - 1));
    for (std::size_t i = 0; i + 3 <= values.size(); i += 3) {
        const auto light = static_cast<double>(colours_[i]);
        const double blue = static_cast<double>(colours_[i + 1]) - middle;
        const double red = static_cast<double>(colours_[i + 2]) - middle;
        values[i] = rounded(light + 1.402 * red, most);
        values[i + 1] = rounded(light - 0.344136 * blue - 0.714136 * red, most);
        values[i + 2] = rounded(light + 1.772 * blue, most);
    }
}

}  // namespace tessaly::tessalyd::composing
