#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "decoder/JobPlan.h"
#include "decoder/ObjectLayout.h"
#include "dicom/data/ObjectFile.h"
#include "tessalyd/forwarding/volumes/Vector.h"

namespace tessaly::tessalyd::volumes {

/// So many frames may be in a series that becomes volumes: what is known of each is held.
constexpr std::size_t MostFrames = 100'000;

/// What one frame says of itself; nothing where it does not say it, or says what cannot be.
struct FrameAttributes {
    std::optional<Vector> position;                    ///< of the first pixel's middle
    std::optional<std::array<Vector, 2>> orientation;  ///< along a row, along a column
    std::optional<std::array<double, 2>> spacing;      ///< mm from row to row, from column to column
    std::optional<double> sliceThickness;              ///< mm
    std::optional<double> sliceSpacing;                ///< mm
    std::optional<double> echoTime;                    ///< ms
    std::optional<double> repetitionTime;              ///< ms
    std::optional<double> slope;
    std::optional<double> intercept;
    std::optional<std::int64_t> temporalPosition;
    std::optional<std::int64_t> acquisitionTime;  ///< microseconds since some moment
    std::optional<std::string> type;              ///< third value of Image Type or Frame Type

    /// Takes from `other` what is not said here.
    void complete(const FrameAttributes& other);
};

/// What an image object says of itself and of its frames.
struct ImageHeader {
    decoder::ImageDescription image;
    std::int64_t instanceNumber = 0;
    bool hasModalityTable = false;  ///< its values are those of a table, not of a slope and an intercept
    bool isMosaic = false;          ///< several slices side by side in one frame
    bool hasPixelData = false;
    std::vector<FrameAttributes> frames;  ///< as many as the image has
};

/// Reads what stands before the pixel data, by the walk alone: time is proportional to its bytes, memory to
/// the frames. Throws VolumeRefusal where it is not readable, has fewer items than frames, or more frames
/// than `mostFrames`; std::runtime_error where the file cannot be read. What `heartbeat` throws comes
/// through.
[[nodiscard]] ImageHeader readImageHeader(const dicom::ObjectFile& object, std::size_t mostFrames,
                                          const decoder::Heartbeat& heartbeat);

}  // namespace tessaly::tessalyd::volumes
