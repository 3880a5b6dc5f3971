// Vectors of the picture: places and displacements in m, directions without unit; colours.
#pragma once

#include <array>
#include <cmath>

#include "model/vector3.h"

namespace kestralum::view {

using kestralum::across;
using kestralum::cross;
using kestralum::dot;
using kestralum::minus;
using kestralum::norm;
using kestralum::plus;
using kestralum::times;
using kestralum::triple;
using kestralum::unit;
using kestralum::Vec3;
using Color = std::array<float, 4>;  // red green blue alpha, 0 … 1

// Single precision, as the graphics card takes it.
inline std::array<float, 3> to_float(const std::array<double, 3>& v) {
    std::array<float, 3> out;
    for (std::size_t k = 0; k < 3; ++k) out[k] = static_cast<float>(v[k]);
    return out;
}
inline Color color_of(const std::array<double, 3>& red_green_blue) {
    const auto [red, green, blue] = to_float(red_green_blue);
    return {red, green, blue, 1};
}

// The model's largest edge as a length that may be divided by: 1 where there is none.
inline double extent_of(double max_length) {
    return max_length > 0 && std::isfinite(max_length) ? max_length : 1.0;
}

}  // namespace kestralum::view
