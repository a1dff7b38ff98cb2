#include "tessalyd/forwarding/films/ImagePixels.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <stdexcept>
#include <system_error>

namespace tessaly::tessalyd::films {

namespace {

constexpr std::size_t PieceSize = std::size_t{128} << 10U;

/// A value of one range in another, rounded.
std::uint32_t rescaled(std::uint32_t value, std::uint32_t from, std::uint32_t to) {
    return static_cast<std::uint32_t>((std::uint64_t{value} * to + from / 2) / from);
}

std::uint32_t greatest(unsigned bits) {
    return (1U << bits) - 1;
}

void readFully(int file, std::span<char> target, std::uint64_t offset) {
    while (!target.empty()) {
        const ssize_t got = ::pread(file, target.data(), target.size(), static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw std::system_error{errno, std::generic_category(), "a film in the spool cannot be read"};
        if (got == 0)
            throw std::runtime_error{"a film in the spool is cut off"};
        target = target.subspan(static_cast<std::size_t>(got));
        offset += static_cast<std::uint64_t>(got);
    }
}

/// The samples of an image, row by row, with some rows read ahead.
class RowReader {
  public:
    RowReader(int file, const ImageLayout& layout) : file_(file), layout_(layout) {}

    /// One channel of a row, in as many bits as are stored.
    void read(unsigned row, unsigned channel, std::vector<std::uint16_t>& samples) {
        const bool isPlane = layout_.isByPlane && layout_.samples > 1;
        const std::size_t sampleSize = layout_.bitsAllocated / 8;
        const std::size_t step = sampleSize * (isPlane ? 1 : layout_.samples);
        const std::size_t rowSize = step * layout_.columns;
        const std::uint64_t plane = isPlane ? std::uint64_t{rowSize} * layout_.rows * channel : 0;
        const auto* at = bytes(plane + std::uint64_t{rowSize} * row, rowSize,
                               plane + std::uint64_t{rowSize} * layout_.rows) +
                         (isPlane ? 0 : channel * sampleSize);
        const auto mask = static_cast<std::uint16_t>(greatest(layout_.bitsStored));
        samples.resize(layout_.columns);
        for (std::uint16_t& sample : samples) {
            const unsigned low = static_cast<unsigned char>(at[0]);
            const unsigned high = sampleSize == 2 ? static_cast<unsigned char>(at[1]) : 0;
            sample = static_cast<std::uint16_t>((high << 8U | low) & mask);
            at += step;
        }
    }

  private:
    struct Window {
        std::vector<char> bytes;
        std::uint64_t offset = 0;
    };

    /// One window for each plane that is read by turns.
    const char* bytes(std::uint64_t offset, std::size_t size, std::uint64_t end) {
        for (Window& window : windows_)
            if (offset >= window.offset && offset + size <= window.offset + window.bytes.size())
                return window.bytes.data() + (offset - window.offset);
        Window& window = windows_[next_++ % 3];
        const std::uint64_t wanted = std::max<std::uint64_t>(size, PieceSize / size * size);
        window.bytes.resize(static_cast<std::size_t>(std::min(wanted, end - offset)));
        window.offset = offset;
        readFully(file_, window.bytes, offset);
        return window.bytes.data();
    }

    int file_;
    const ImageLayout& layout_;
    std::array<Window, 3> windows_;
    std::size_t next_ = 0;
};

/// Every value that a sample may have, as the target has it.
std::vector<std::uint16_t> mapping(const ImageLayout& source, const TargetLayout& target) {
    constexpr unsigned Ten = 10;
    const std::uint32_t from = greatest(source.bitsStored);
    const bool isInverted = target.isRendered && source.isInverse != target.isReversed;
    std::vector<std::uint16_t> map(from + 1);
    for (std::uint32_t value = 0; value <= from; ++value) {
        std::uint32_t mapped = isInverted ? from - value : value;
        std::uint32_t range = from;
        if (target.isRendered && target.lookUp != nullptr && !target.lookUp->values.empty()) {
            const auto& table = target.lookUp->values;
            const auto last = static_cast<std::uint32_t>(table.size() - 1);
            range = greatest(target.lookUp->bits);
            mapped = std::min<std::uint32_t>(table[rescaled(mapped, from, last)], range);
        }
        if (target.isColour || target.bits == 8)
            mapped = rescaled(mapped, range, greatest(8));
        else if (target.bits == Ten)
            mapped = rescaled(mapped, range, greatest(Ten)) << 2U;
        else
            mapped = rescaled(mapped, range, greatest(12));
        map[value] = static_cast<std::uint16_t>(mapped);
    }
    return map;
}

/// Weighs the rows of a source into those of a target that is as large or smaller.
class Reducer {
  public:
    Reducer(unsigned columns, unsigned rows, const PixelSize& target)
        : columns_(columns), rows_(rows), target_(target), sums_(target.columns), row_(target.columns) {}

    /// The next row of the source. `done` gets each row of the target that is complete by it.
    template <class Done>
    void add(const std::vector<std::uint16_t>& source, Done done) {
        narrow(source);
        // In units of a row of the source divided by the rows of the target.
        std::uint64_t begin = std::uint64_t{taken_++} * target_.rows;
        const std::uint64_t end = begin + target_.rows;
        while (begin < end) {
            const std::uint64_t border = (std::uint64_t{finished_} + 1) * rows_;
            const std::uint64_t until = std::min(end, border);
            const auto weight = static_cast<double>(until - begin) / static_cast<double>(rows_);
            for (std::size_t x = 0; x < sums_.size(); ++x)
                sums_[x] += weight * row_[x];
            if (until == border) {
                ++finished_;
                done(sums_);
                std::fill(sums_.begin(), sums_.end(), 0.0);
            }
            begin = until;
        }
    }

  private:
    void narrow(const std::vector<std::uint16_t>& source) {
        if (target_.columns == columns_) {
            std::copy(source.begin(), source.end(), row_.begin());
            return;
        }
        std::size_t x = 0;
        std::fill(row_.begin(), row_.end(), 0.0);
        for (std::uint64_t column = 0; column < columns_; ++column) {
            std::uint64_t begin = column * target_.columns;
            const std::uint64_t end = begin + target_.columns;
            while (begin < end) {
                const std::uint64_t border = (std::uint64_t{x} + 1) * columns_;
                const std::uint64_t until = std::min(end, border);
                row_[x] +=
                    static_cast<double>(until - begin) / static_cast<double>(columns_) * source[column];
                if (until == border)
                    ++x;
                begin = until;
            }
        }
    }

    std::uint64_t columns_;
    std::uint64_t rows_;
    PixelSize target_;
    std::vector<double> sums_;
    std::vector<double> row_;
    unsigned taken_ = 0;
    unsigned finished_ = 0;
};

}  // namespace

LookupTable LookupTable::forBits(unsigned pixelBits) const {
    const std::uint32_t last = greatest(pixelBits);
    if (values.size() == std::size_t{last} + 1 || values.empty())
        return *this;
    LookupTable other{.values = {}, .bits = bits};
    other.values.reserve(last + 1);
    for (std::uint32_t pixel = 0; pixel <= last; ++pixel)
        other.values.push_back(values[rescaled(pixel, last, static_cast<std::uint32_t>(values.size() - 1))]);
    return other;
}

PixelSize fitted(const PixelSize& image, const PixelSize& box) noexcept {
    if (image.columns <= box.columns && image.rows <= box.rows)
        return image;
    // The side that is to shrink more fills the box.
    const auto part = [](std::uint64_t size, std::uint64_t whole, std::uint64_t of) {
        return static_cast<unsigned>(std::max<std::uint64_t>(1, (size * whole + of / 2) / of));
    };
    const bool byWidth = std::uint64_t{image.columns} * box.rows >= std::uint64_t{image.rows} * box.columns;
    return byWidth ? PixelSize{.columns = box.columns,
                               .rows = std::min(box.rows, part(image.rows, box.columns, image.columns))}
                   : PixelSize{.columns = std::min(box.columns, part(image.columns, box.rows, image.rows)),
                               .rows = box.rows};
}

void convertPixels(int file, const ImageLayout& source, const TargetLayout& target,
                   const std::function<void(std::span<const char>)>& take) {
    constexpr std::array Luminance{299U, 587U, 114U};  // thousandths, ITU-R BT.601
    constexpr double Half = 0.5;                       // rounds, where the rest is cut off
    RowReader reader{file, source};
    const std::vector<std::uint16_t> map = mapping(source, target);
    std::vector<char> piece;
    piece.reserve(PieceSize + std::size_t{target.columns} * 2);
    const auto put = [&](const auto& row) {
        for (const auto sample : row) {
            const auto value = static_cast<unsigned>(sample + Half);
            piece.push_back(static_cast<char>(value & 0xffU));
            if (target.bytesPerSample() == 2)
                piece.push_back(static_cast<char>(value >> 8U));
        }
        if (piece.size() >= PieceSize) {
            take(piece);
            piece.clear();
        }
    };
    const bool isAsLarge = target.rows == source.rows && target.columns == source.columns;
    std::vector<std::uint16_t> samples;
    std::vector<std::uint32_t> gray(source.columns);
    for (unsigned plane = 0; plane < (target.isColour ? 3U : 1U); ++plane) {
        Reducer reducer{source.columns, source.rows, {.columns = target.columns, .rows = target.rows}};
        for (unsigned row = 0; row < source.rows; ++row) {
            if (source.samples == 1 || target.isColour) {
                reader.read(row, source.samples == 1 ? 0 : plane, samples);
            } else {
                std::fill(gray.begin(), gray.end(), 500U);
                for (unsigned channel = 0; channel < Luminance.size(); ++channel) {
                    reader.read(row, channel, samples);
                    for (std::size_t x = 0; x < gray.size(); ++x)
                        gray[x] += Luminance[channel] * samples[x];
                }
                for (std::size_t x = 0; x < gray.size(); ++x)
                    samples[x] = static_cast<std::uint16_t>(gray[x] / 1000);
            }
            for (std::uint16_t& sample : samples)
                sample = map[sample];
            if (isAsLarge)
                put(samples);
            else
                reducer.add(samples, put);
        }
    }
    if (!piece.empty())
        take(piece);
}

}  // namespace tessaly::tessalyd::films
