// Places, triangles and volumes of a mesh.
#pragma once

#include <gtest/gtest.h>

#include "model/free_faces.h"
#include "model/vector3.h"

namespace kestralum::testing {

inline Vec3 point(const Mesh& mesh, std::int32_t number) {
    return triple(mesh.coordinates, node_index(number));
}

// Visits the outward triangles of one face with their corners.
template <typename Visit>
void for_each_triangle(const Mesh& mesh, const ElementFace& face, Visit visit) {
    const std::int32_t* element = mesh.connectivity.data() + face.element * mesh.node_per_element();
    const auto local = outward_triangles(mesh.element_type, face.face);
    ASSERT_EQ(local.size(), 3u * static_cast<std::size_t>(face_table(mesh.element_type).triangles_per_face));
    for (std::size_t t = 0; t < local.size(); t += 3)
        visit(point(mesh, element[local[t]]), point(mesh, element[local[t + 1]]),
              point(mesh, element[local[t + 2]]));
}

// Volume inside the extracted surface (divergence theorem): right only if the surface is closed
// and every triangle winds outwards.
inline double volume_inside_surface(const Mesh& mesh) {
    double volume = 0;
    for (const ElementFace& face : free_faces(mesh))
        for_each_triangle(mesh, face, [&](const Vec3& a, const Vec3& b, const Vec3& c) {
            volume += dot(a, cross(b, c)) / 6;
        });
    return volume;
}

}  // namespace kestralum::testing
