#include "tessalyd/forwarding/composing/FrameRenderer.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tessalyd/forwarding/images/ImageRefusal.h"

namespace tessaly::tessalyd::composing {

namespace {

constexpr unsigned GrayBits = 12;
constexpr double GreatestGray = (1U << GrayBits) - 1;
constexpr std::size_t BandBytes = std::size_t{4} << 20U;
constexpr std::size_t PieceBytes = std::size_t{256} << 10U;

Area areaOf(const FrameReader& frame, const Look& look) {
    return look.area.value_or(
        Area{.left = 0, .top = 0, .right = frame.columns() - 1, .bottom = frame.rows() - 1});
}

bool isTurned(const Look& look) {
    return look.rotation == 90 || look.rotation == 270;
}

/// Pixel Aspect Ratio where pixels are not square; empty where they are. It is vertical\horizontal.
std::string aspectRatioOf(const Header& header, bool isTurned) {
    const auto* const group = header.item(DCM_SharedFunctionalGroupsSequence);
    const auto* const measures = group == nullptr ? nullptr : group->item(DCM_PixelMeasuresSequence);
    auto vertical = header.decimal(DCM_PixelAspectRatio, 0);
    auto horizontal = header.decimal(DCM_PixelAspectRatio, 1);
    for (const auto& [source, tag] :
         {std::pair{&header, DCM_PixelSpacing}, std::pair{measures, DCM_PixelSpacing},
          std::pair{&header, DCM_ImagerPixelSpacing}}) {
        if (source == nullptr || (vertical && horizontal))
            continue;
        vertical = source->decimal(tag, 0);
        horizontal = source->decimal(tag, 1);
    }
    if (!vertical || !horizontal || *vertical <= 0 || *horizontal <= 0)
        return {};
    // The values are whole numbers.
    constexpr double Exact = 10000;
    const double ratio = *vertical / *horizontal;
    if (std::abs(ratio - 1) < 1 / Exact || ratio > Exact || ratio < 1 / Exact)
        return {};
    const bool isTall = ratio > 1;
    std::string first = std::to_string(std::lround(isTall ? ratio * Exact : Exact));
    std::string second = std::to_string(std::lround(isTall ? Exact : Exact / ratio));
    if (isTurned)
        std::swap(first, second);
    return first + '\\' + second;
}

/// Turns stored values into pixels of the film.
class Converter {
  public:
    Converter(FrameReader& frame, const Look& look, const Area& area, const decoder::Heartbeat& heartbeat)
        : frame_(frame), look_(look) {
        if (frame.isColour())
            return;
        if (look.needsRange())
            findRange(area, heartbeat);
        constexpr unsigned MostInTable = 16;
        if (frame.bitsStored() > MostInTable)
            return;
        const std::int64_t count = std::int64_t{1} << frame.bitsStored();
        first_ = frame.isSigned() ? -count / 2 : 0;
        table_.reserve(static_cast<std::size_t>(count));
        for (std::int64_t value = first_; value < first_ + count; ++value)
            table_.push_back(convert(value));
    }

    [[nodiscard]] std::size_t pixelSize() const noexcept { return frame_.isColour() ? 3 : 2; }

    void read(std::uint32_t row, std::uint32_t column, std::span<char> pixels) {
        if (frame_.isColour()) {
            frame_.readColour(row, column, {reinterpret_cast<std::uint8_t*>(pixels.data()), pixels.size()});
            return hide(row, column, pixels);
        }
        values_.resize(pixels.size() / 2);
        frame_.readGray(row, column, values_);
        for (std::size_t i = 0; i < values_.size(); ++i) {
            const unsigned pixel =
                table_.empty() ? convert(values_[i]) : table_[static_cast<std::size_t>(values_[i] - first_)];
            pixels[2 * i] = static_cast<char>(pixel & 0xffU);
            pixels[2 * i + 1] = static_cast<char>(pixel >> 8U);
        }
        hide(row, column, pixels);
    }

  private:
    /// What lies behind a shutter; in colour that is black.
    void hide(std::uint32_t row, std::uint32_t column, std::span<char> pixels) const {
        if (!look_.shutter)
            return;
        constexpr double Greatest = 65535;
        const bool isColour = frame_.isColour();
        const auto gray = static_cast<unsigned>(
            isColour ? 0 : std::floor(look_.shutter->value / Greatest * GreatestGray + 0.5));
        const std::size_t size = pixelSize();
        for (std::size_t i = 0; i < pixels.size() / size; ++i) {
            if (!look_.shutter->hides(std::int64_t{row} + 1,
                                      std::int64_t{column} + 1 + static_cast<std::int64_t>(i)))
                continue;
            for (std::size_t byte = 0; byte < size; ++byte)
                pixels[i * size + byte] = static_cast<char>(gray >> 8U * byte);
        }
    }

    [[nodiscard]] std::uint16_t convert(std::int64_t value) const {
        return static_cast<std::uint16_t>(
            std::floor(look_.of(static_cast<double>(value), range_) * GreatestGray + 0.5));
    }

    /// What is padding does not count, unless there is nothing else.
    void findRange(const Area& area, const decoder::Heartbeat& heartbeat) {
        double least = std::numeric_limits<double>::max();
        double greatest = std::numeric_limits<double>::lowest();
        values_.resize(area.right - area.left + std::size_t{1});
        for (std::uint32_t row = area.top; row <= area.bottom; ++row) {
            heartbeat();
            frame_.readGray(row, area.left, values_);
            for (const std::int64_t value : values_) {
                if (look_.padding && value >= look_.padding->first && value <= look_.padding->second)
                    continue;
                const double seen = look_.modality.of(static_cast<double>(value));
                least = std::min(least, seen);
                greatest = std::max(greatest, seen);
            }
        }
        if (least <= greatest)
            range_ = {least, greatest};
    }

    FrameReader& frame_;
    const Look& look_;
    std::pair<double, double> range_{0, 0};
    std::int64_t first_ = 0;            // the value of the table's first entry
    std::vector<std::uint16_t> table_;  // empty where there are too many values
    std::vector<std::int64_t> values_;
};

/// Collects pixels into pieces.
class Pieces {
  public:
    explicit Pieces(const std::function<void(std::span<const char>)>& take) : take_(take) {}

    void add(std::span<const char> row, std::size_t pixelSize, bool isReversed) {
        if (!isReversed) {
            piece_.insert(piece_.end(), row.begin(), row.end());
        } else {
            for (std::size_t at = row.size(); at >= pixelSize; at -= pixelSize)
                piece_.insert(piece_.end(), row.begin() + static_cast<std::ptrdiff_t>(at - pixelSize),
                              row.begin() + static_cast<std::ptrdiff_t>(at));
        }
        if (piece_.size() >= PieceBytes)
            flush();
    }
    void flush() {
        if (!piece_.empty())
            take_(piece_);
        piece_.clear();
    }

  private:
    const std::function<void(std::span<const char>)>& take_;
    std::vector<char> piece_;
};

void renderRows(Converter& converter, const Area& area, const Look& look, Pieces& pieces,
                const decoder::Heartbeat& heartbeat) {
    const bool isTurnedOver = look.rotation == 180;
    std::vector<char> row((area.right - area.left + std::size_t{1}) * converter.pixelSize());
    for (std::uint32_t y = area.top; y <= area.bottom; ++y) {
        heartbeat();
        converter.read(isTurnedOver ? area.bottom - (y - area.top) : y, area.left, row);
        pieces.add(row, converter.pixelSize(), isTurnedOver != look.isFlipped);
    }
}

/// Each column becomes a row: some of them at a time.
void renderColumns(Converter& converter, const Area& area, const Look& look, Pieces& pieces,
                   const decoder::Heartbeat& heartbeat) {
    const std::size_t size = converter.pixelSize();
    const std::size_t length = area.bottom - area.top + std::size_t{1};
    const std::size_t width = area.right - area.left + std::size_t{1};
    const std::size_t most = std::clamp<std::size_t>(BandBytes / (length * size), 1, width);
    const bool isClockwise = look.rotation == 90;
    std::vector<char> segment;
    std::vector<char> rows;
    for (std::size_t done = 0; done < width; done += most) {
        const std::size_t count = std::min(most, width - done);
        // Clockwise, the first column becomes the first row; else the last one does.
        const std::size_t first = isClockwise ? done : width - done - count;
        segment.resize(count * size);
        rows.resize(count * length * size);
        for (std::size_t y = 0; y < length; ++y) {
            heartbeat();
            converter.read(area.top + static_cast<std::uint32_t>(y),
                           area.left + static_cast<std::uint32_t>(first), segment);
            for (std::size_t i = 0; i < count; ++i)
                std::copy_n(segment.begin() + static_cast<std::ptrdiff_t>(i * size), size,
                            rows.begin() + static_cast<std::ptrdiff_t>((i * length + y) * size));
        }
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t column = isClockwise ? i : count - 1 - i;
            pieces.add(std::span{rows}.subspan(column * length * size, length * size), size,
                       isClockwise != look.isFlipped);
        }
    }
}

}  // namespace

films::ImageLayout layoutOf(const FrameReader& frame, const Look& look, const Header& header) {
    const Area area = areaOf(frame, look);
    films::ImageLayout layout{.rows = area.bottom - area.top + 1,
                              .columns = area.right - area.left + 1,
                              .samples = frame.isColour() ? 3U : 1U,
                              .bitsAllocated = frame.isColour() ? 8U : 16U,
                              .bitsStored = frame.isColour() ? 8U : GrayBits,
                              .aspectRatio = aspectRatioOf(header, isTurned(look))};
    if (layout.bytes() > MostFrameBytes)
        throw images::ImageRefusal{"it has more than 64 MB"};
    if (isTurned(look))
        std::swap(layout.rows, layout.columns);
    return layout;
}

void renderFrame(FrameReader& frame, const Look& look, const std::function<void(std::span<const char>)>& take,
                 const decoder::Heartbeat& heartbeat) {
    const Area area = areaOf(frame, look);
    Converter converter{frame, look, area, heartbeat};
    Pieces pieces{take};
    if (isTurned(look))
        renderColumns(converter, area, look, pieces, heartbeat);
    else
        renderRows(converter, area, look, pieces, heartbeat);
    pieces.flush();
}

}  // namespace tessaly::tessalyd::composing
