// Which places what has been drawn so far leaves in sight.
#pragma once

#include <span>
#include <vector>

#include "view/camera.h"

namespace kestralum::view::gl {

// One flag per place: 0 where nearer things hide it and outside the view. Asks the depth buffer of the
// framebuffer in force, whatever its samples, and waits for the answer; draws nothing. The modelling matrices
// of the scene are in force.
std::vector<char> visible_points(std::span<const Vec3> places, const Camera& camera, const Scene& scene);

}  // namespace kestralum::view::gl
