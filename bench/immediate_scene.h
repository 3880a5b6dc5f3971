// The faces of every element, one glVertex after the other: what the buffers are measured against.
#pragma once

#include <GL/gl.h>

#include "view/contour.h"
#include "view/picture.h"

namespace kestralum::testing {

// Draws at `places` (node_num × 3) in the matrices in force: in the colours of `picture`'s values, or lit
// in the parts' colours where it has none. Hexahedra as quadrilaterals, tetrahedra as triangles.
inline void draw_every_face(const view::Picture& picture, const view::SceneTables& tables, double alpha,
                            std::span<const double> places) {
    using namespace view;
    const Mesh& mesh = tables.mesh();
    const FaceTable table = face_table(mesh.element_type);
    const int nodes = mesh.node_per_element();
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const std::int32_t* element = mesh.connectivity.data() + static_cast<std::ptrdiff_t>(e) * nodes;
        for (int f = 0; f < table.faces; ++f) {
            const auto corners = face_corners(mesh.element_type, f);
            const bool quad = corners.size() == 4;
            const auto local = quad ? corners : outward_triangles(mesh.element_type, f);
            auto at = [&](std::size_t k) { return triple(places, element[corners[k]] - 1); };
            if (!picture.contour()) {
                const Vec3 a = at(0);
                const Vec3 n = unit(cross(minus(at(1), a), minus(at(corners.size() - 1), a)));
                glNormal3dv(n.data());
            }
            glBegin(quad ? GL_QUADS : GL_TRIANGLES);
            for (const int p : local) {
                const std::int32_t n = element[p] - 1;
                if (picture.contour())
                    glColor4fv(scale_color({},
                                           share_of(picture.values()[static_cast<std::size_t>(n)],
                                                    picture.range()->low.value, picture.range()->high.value),
                                           alpha)
                                   .data());
                glVertex3dv(places.data() + 3 * static_cast<std::ptrdiff_t>(n));
            }
            glEnd();
        }
    }
}

}  // namespace kestralum::testing
