// Places, triangles and volumes of a mesh.
#pragma once

#include "model/free_faces.h"
#include "model/vector3.h"

namespace kestralum::testing {

inline Vec3 point(const Mesh& mesh, std::int32_t number) {
    return triple(mesh.coordinates, node_index(number));
}

// Volume inside the extracted surface (divergence theorem): right only if the surface is closed
// and every triangle winds outwards.
inline double volume_inside_surface(const Mesh& mesh) {
    double volume = 0;
    for (const ElementFace& side : free_faces(mesh)) {
        const auto local = outward_triangles(mesh.element_type, side.face);
        const auto corner = [&](std::size_t k) { return point(mesh, mesh.element(side.element)[local[k]]); };
        for (std::size_t t = 0; t < local.size(); t += 3)
            volume += dot(corner(t), cross(corner(t + 1), corner(t + 2))) / 6;
    }
    return volume;
}

}  // namespace kestralum::testing
