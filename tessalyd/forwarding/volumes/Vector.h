#pragma once

#include <cmath>

namespace tessaly::tessalyd::volumes {

/// A place or a direction, in mm, in the patient's coordinates of the standard: x to the left, y to the back,
/// z to the head.
struct Vector {
    double x = 0;
    double y = 0;
    double z = 0;

    friend constexpr Vector operator+(const Vector& a, const Vector& b) {
        return {a.x + b.x, a.y + b.y, a.z + b.z};
    }
    friend constexpr Vector operator-(const Vector& a, const Vector& b) {
        return {a.x - b.x, a.y - b.y, a.z - b.z};
    }
    friend constexpr Vector operator*(const Vector& a, double factor) {
        return {a.x * factor, a.y * factor, a.z * factor};
    }
};

[[nodiscard]] constexpr double dot(const Vector& a, const Vector& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
[[nodiscard]] constexpr Vector cross(const Vector& a, const Vector& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
[[nodiscard]] inline double length(const Vector& a) {
    return std::sqrt(dot(a, a));
}
/// Of length 1. The vector is not zero.
[[nodiscard]] inline Vector unit(const Vector& a) {
    return a * (1 / length(a));
}

}  // namespace tessaly::tessalyd::volumes
