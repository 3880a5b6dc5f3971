// Vectors of three components and 3 × 3 matrices.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kestralum {

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<double, 9>;  // row-major

inline Vec3 plus(const Vec3& a, const Vec3& b) {
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
inline Vec3 minus(const Vec3& a, const Vec3& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
inline Vec3 times(double f, const Vec3& a) {
    return {f * a[0], f * a[1], f * a[2]};
}
inline double dot(const Vec3& a, const Vec3& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
inline Vec3 cross(const Vec3& a, const Vec3& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
inline double norm(const Vec3& a) {
    return std::sqrt(dot(a, a));
}

// a/|a|; `fallback` where a is zero or not finite.
inline Vec3 unit(const Vec3& a, const Vec3& fallback = {0, 0, 1}) {
    const double length = norm(a);
    return length > 0 && std::isfinite(length) ? times(1 / length, a) : fallback;
}

// Unit vector across a unit vector: at right angles to it and to the coordinate axis that it follows least.
inline Vec3 across(const Vec3& axis) {
    std::size_t smallest = 0;
    for (std::size_t c = 1; c < 3; ++c)
        if (std::abs(axis[c]) < std::abs(axis[smallest])) smallest = c;
    Vec3 direction{};
    direction[smallest] = 1;
    return unit(cross(axis, direction));
}

// Triple n (0-based) of a node_num × 3 table.
inline Vec3 triple(std::span<const double> table, std::int64_t n) {
    const double* x = table.data() + 3 * n;
    return {x[0], x[1], x[2]};
}

inline Mat3 multiply3(const Mat3& a, const Mat3& b) {
    Mat3 c{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            for (std::size_t k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
    return c;
}
inline Mat3 transposed(const Mat3& a) {
    return {a[0], a[3], a[6], a[1], a[4], a[7], a[2], a[5], a[8]};
}
// R v
inline Vec3 turned(const Mat3& R, const Vec3& v) {
    return {R[0] * v[0] + R[1] * v[1] + R[2] * v[2], R[3] * v[0] + R[4] * v[1] + R[5] * v[2],
            R[6] * v[0] + R[7] * v[1] + R[8] * v[2]};
}

}  // namespace kestralum
