// How well an element is shaped, from its nodes' places alone.
#pragma once

#include "model/mesh.h"

namespace kestralum {

struct ElementQuality {
    double angle = 0;  // smallest between two edges of a face, in tetrahedra also between two faces, degrees
    double jacobian =
        0;  // smallest over largest determinant of the map from the reference element, sampled at its
            // nodes; 1: undistorted, 0 or less: folded, and where the largest is not positive
    double edge_ratio =
        0;  // longest over shortest straight edge between corners; infinite where one has no length
};

// x: nodes per element × 3, m.
ElementQuality element_quality(ElementKind kind, std::span<const double> x);

// Smallest and largest determinant, m^3, six times the volume in a tetrahedron with straight edges, and in a
// hexahedron of right angles the volume.
struct Determinants {
    double smallest = 0, largest = 0;
};
Determinants element_determinants(ElementKind kind, std::span<const double> x);

}  // namespace kestralum
