// Three-component vectors of the picture: places and displacements in m, directions without unit.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <span>

namespace kestralum::view {

using Vec3 = std::array<double, 3>;
using Color = std::array<float, 4>;  // red green blue alpha, 0 … 1

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

// Triple n (0-based) of a node_num × 3 table.
inline Vec3 triple(std::span<const double> table, std::int64_t n) {
    const double* x = table.data() + 3 * n;
    return {x[0], x[1], x[2]};
}

// The model's largest edge as a length that may be divided by: 1 where there is none.
inline double extent_of(double max_length) {
    return max_length > 0 && std::isfinite(max_length) ? max_length : 1.0;
}

}  // namespace kestralum::view
