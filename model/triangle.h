// Triangles in space.
#pragma once

#include "model/vector3.h"

namespace kestralum {

// Point of the triangle a b c that is closest to p (C. Ericson, Real-Time Collision Detection, 2005, 5.1.5).
Vec3 closest_point(const Vec3& p, const Vec3& a, const Vec3& b, const Vec3& c);

}  // namespace kestralum
