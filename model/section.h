// Planes through a mesh and what is carried across them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/vector3.h"

namespace kestralum {

// The side that the normal points away from is the one cut off: forces are those that the other side exerts
// on it, so that tension counts along the normal.
struct SectionPlane {
    std::string name;
    Vec3 point{}, normal{};  // m; of length 1
};

// A force with its moment about a place that is told beside it.
struct Resultant {
    Vec3 force{}, moment{};  // N, N m
};

struct PartSection {
    std::int32_t part = 0;  // index in the model
    double area = 0;        // m^2, at rest
    Resultant carried;
};

// What one plane carries in one frame. `carried`, `loads` and `held` are in balance with `inertia`, all about
// `centre`: carried + loads + held = inertia.
struct SectionSum {
    std::int32_t plane = 0, frame = 0;  // 0-based: of the options' planes, of the run's frames
    double area = 0;                    // m^2, at rest
    Vec3 centre{};                   // of the area, m; where the body is displaced in the analyses with steps
    Resultant carried;               // by the elements from the other side
    Resultant loads;                 // on the nodes of the side cut off, contact and walls included
    Resultant held;                  // by supports, springs, ties and rigid elements, on the same nodes
    Resultant inertia;               // of them, damping included; explicit
    std::vector<PartSection> parts;  // that are cut, ascending
};

}  // namespace kestralum
