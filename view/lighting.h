// Lights beside the main one.
#pragma once

#include <array>

#include "view/camera.h"

namespace kestralum::view {

// What every side of the model gets of its colour without any lamp: half of the ambient light.
inline constexpr double ambient_share = 0.3;
inline constexpr double main_diffuse = 0.7;

// Two lamps at infinity, in model space: each a vector towards it, as long as it is bright. With the main
// light at its start (max_length each) the first makes the sides of the box at the high ends of x, y and z
// differ in brightness by a fifth at least, the top brightest as a rule; the second does the same for the low
// ends.
std::array<Vec3, 2> fill_lights(const Scene& scene);

}  // namespace kestralum::view
