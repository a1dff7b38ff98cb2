#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <cstdint>
#include <optional>

namespace tessaly::tessalyd::volumes {

/// What is wanted of an image's header.
enum class Field : std::uint8_t {
    Position,
    Orientation,
    Spacing,
    SliceThickness,
    SliceSpacing,
    EchoTime,
    RepetitionTime,
    Slope,
    Intercept,
    TemporalPosition,
    AcquisitionDate,
    AcquisitionTime,
    AcquisitionDateTime,
    Type,
    InstanceNumber,
    SamplesPerPixel,
    Photometric,
    Frames,
    Rows,
    Columns,
    BitsAllocated,
    BitsStored,
    HighBit,
    Representation,
};

/// In the place of a functional group: the object itself.
inline const DcmTagKey OfObject{0x0000, 0x0000};

/// What the attribute says in the functional group of that sequence; nullopt if it is not wanted.
[[nodiscard]] std::optional<Field> fieldOf(const DcmTagKey& group, const DcmTagKey& tag);

}  // namespace tessaly::tessalyd::volumes
