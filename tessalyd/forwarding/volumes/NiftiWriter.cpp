#include <algorithm>
#include <cmath>

#include "tessalyd/forwarding/volumes/GzipFile.h"
#include "tessalyd/forwarding/volumes/HeaderBytes.h"
#include "tessalyd/forwarding/volumes/VolumeWriter.h"

namespace tessaly::tessalyd::volumes {

namespace {

constexpr std::int16_t TypeInt8 = 256;
constexpr std::int16_t TypeUint16 = 512;
constexpr std::int16_t TypeUint32 = 768;
constexpr std::int16_t ScannerCoordinates = 1;
constexpr char MillimetresAndSeconds = 10;

/// The second axis of an image goes down; a volume's goes up.
constexpr Axes RowsFlipped{Axis{.from = 0}, Axis{.from = 1, .isReversed = true}, Axis{.from = 2}};

/// A type without a sign is named as the one with a sign where the values are the same in both: more programs
/// read that.
std::int16_t typeOf(const StagedVolume& volume) {
    const bool fits = !volume.type.isSigned && volume.greatest < std::int64_t{1}
                                                                     << (8 * volume.type.size - 1);
    switch (volume.type.size) {
        case 1:
            return volume.type.isSigned ? TypeInt8 : TypeUint8;
        case 2:
            return volume.type.isSigned || fits ? TypeInt16 : TypeUint16;
        default:
            return volume.type.isSigned || fits ? TypeInt32 : TypeUint32;
    }
}

/// The format's x goes to the right and its y to the front; those of the standard go to the left and the
/// back.
Vector toNifti(const Vector& vector) {
    return {-vector.x, -vector.y, vector.z};
}

void putTransformation(HeaderBytes& header, const Geometry& geometry) {
    const std::array<Vector, 4> columns{toNifti(geometry.steps[0]), toNifti(geometry.steps[1]),
                                        toNifti(geometry.steps[2]), toNifti(geometry.origin)};
    for (std::size_t i = 0; i < columns.size(); ++i) {
        header.put(280 + 4 * i, static_cast<float>(columns[i].x));
        header.put(296 + 4 * i, static_cast<float>(columns[i].y));
        header.put(312 + 4 * i, static_cast<float>(columns[i].z));
    }
    header.put(254, ScannerCoordinates);
}

/// The same as a rotation, which has no shear. Its third column is turned where the axes are left-handed.
void putRotation(HeaderBytes& header, const Geometry& geometry) {
    const Vector x = unit(toNifti(geometry.steps[0]));
    const Vector aside = toNifti(geometry.steps[1]);
    const Vector y = unit(aside - x * dot(x, aside));
    const Vector z = cross(x, y);
    const bool isLeftHanded = dot(z, toNifti(geometry.steps[2])) < 0;
    header.put(76, isLeftHanded ? -1.0F : 1.0F);
    // The greatest part of the quaternion first: the others are divided by it.
    const double trace = x.x + y.y + z.z;
    double a = 0;
    Vector v;
    if (trace > 0) {
        a = std::sqrt(1 + trace) / 2;
        v = Vector{y.z - z.y, z.x - x.z, x.y - y.x} * (1 / (4 * a));
    } else if (x.x >= y.y && x.x >= z.z) {
        v.x = std::sqrt(1 + x.x - y.y - z.z) / 2;
        a = (y.z - z.y) / (4 * v.x);
        v.y = (y.x + x.y) / (4 * v.x);
        v.z = (z.x + x.z) / (4 * v.x);
    } else if (y.y >= z.z) {
        v.y = std::sqrt(1 + y.y - x.x - z.z) / 2;
        a = (z.x - x.z) / (4 * v.y);
        v.x = (y.x + x.y) / (4 * v.y);
        v.z = (z.y + y.z) / (4 * v.y);
    } else {
        v.z = std::sqrt(1 + z.z - x.x - y.y) / 2;
        a = (x.y - y.x) / (4 * v.z);
        v.x = (z.x + x.z) / (4 * v.z);
        v.y = (z.y + y.z) / (4 * v.z);
    }
    const double sign = a < 0 ? -1 : 1;  // the format keeps the other three and takes this one for positive
    header.put(256, static_cast<float>(sign * v.x));
    header.put(260, static_cast<float>(sign * v.y));
    header.put(264, static_cast<float>(sign * v.z));
    const Vector origin = toNifti(geometry.origin);
    header.put(268, static_cast<float>(origin.x));
    header.put(272, static_cast<float>(origin.y));
    header.put(276, static_cast<float>(origin.z));
    header.put(252, ScannerCoordinates);
}

}  // namespace

void writeNifti(const std::filesystem::path& path, const StagedVolume& volume,
                const images::ScratchFile& file, const decoder::Heartbeat& heartbeat) {
    constexpr std::array<char, 4> NoExtensions{};
    const VolumeLayout& layout = volume.layout;
    const Geometry geometry = geometryOf(layout, RowsFlipped);
    const bool isScaled = !layout.hasOneScale();
    HeaderBytes header;
    header.describe(geometry.size, layout.times, isScaled ? TypeFloat32 : typeOf(volume),
                    isScaled ? 4 : volume.type.size);
    header.measure({length(geometry.steps[0]), length(geometry.steps[1]), length(geometry.steps[2])},
                   layout.secondsApart);
    header.put(76, 1.0F);
    header.put(108, static_cast<float>(HeaderBytes::Size + NoExtensions.size()));
    header.put(112, isScaled ? 1.0F : static_cast<float>(layout.slices.front().slope));
    header.put(116, isScaled ? 0.0F : static_cast<float>(layout.slices.front().intercept));
    header.put(123, MillimetresAndSeconds);
    putTransformation(header, geometry);
    if (!layout.isSheared)
        putRotation(header, geometry);
    header.put(344, 'n');
    header.put(345, '+');
    header.put(346, '1');
    GzipFile target{path};
    target.write(header.bytes());
    target.write(NoExtensions);
    writeVoxels(
        volume, file, RowsFlipped, isScaled ? VoxelType::ScaledFloat : VoxelType::Stored,
        [&target](std::span<const char> bytes) { target.write(bytes); }, heartbeat);
    target.finish();
}

}  // namespace tessaly::tessalyd::volumes
