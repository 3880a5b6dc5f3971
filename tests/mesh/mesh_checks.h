// What the tests of the meshers measure on a mesh.
#pragma once

#include <algorithm>
#include <set>

#include "mesh/assembly.h"
#include "mesh/part_catalogue.h"
#include "support/collected.h"
#include "support/mesh_geometry.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

namespace kestralum::testing {

inline Part make_part(const char* keyword, const std::vector<double>& sizes,
                      const std::vector<int>& divisions) {
    Part part;
    part.name = part.type_name = keyword;
    part.type = find_shape(keyword)->shape;
    std::copy(sizes.begin(), sizes.end(), part.size.begin());
    std::copy(divisions.begin(), divisions.end(), part.div.begin());
    return part;
}

// What came of building a mesh; a refused model leaves the mesh alone.
struct Built {
    bool good;
    Mesh mesh;
    Remarks remarks;
    std::string lines;
};
inline Built build(const std::vector<Part>& parts, const char* model_file_name = "") {
    Collected collected;
    Built built{};
    built.good = build_mesh(parts, model_file_name, built.mesh, built.remarks, collected);
    EXPECT_TRUE(built.good || built.mesh.node_num() == 0);
    built.lines = collected.lines;
    return built;
}

inline Mesh mesh_of(const std::vector<Part>& parts) {
    const Built built = build(parts);
    EXPECT_TRUE(built.good) << joined(built.remarks.errors);
    return built.mesh;
}

// Errors of parts that cannot be meshed.
inline std::string errors_of(const std::vector<Part>& parts) {
    const Built built = build(parts);
    EXPECT_FALSE(built.good);
    return joined(built.remarks.errors);
}

// Smallest Jacobian determinant at the 2×2×2 Gauss points, plain and divided by the lengths of its
// rows, and the volume they integrate with the smallest and largest share of one element. Tetrahedra: their
// volumes.
struct JacobianCheck {
    double smallest = 1e300, smallest_scaled = 1, volume = 0;
    double smallest_element = 1e300, largest_element = 0;
};
inline JacobianCheck check_hexahedra(const Mesh& mesh) {
    JacobianCheck check;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        double element = 0;
        for (const auto& near : hexa_corner) {  // the Gauss point beside a corner
            Vec3 J[3] = {};
            for (int n = 0; n < 8; ++n)
                for (int k = 0; k < 3; ++k) {
                    double share = hexa_corner[n][k] ? 1 : -1;
                    for (int other : {(k + 1) % 3, (k + 2) % 3})
                        share *= 0.5 + (hexa_corner[n][other] == near[other] ? 0.5 : -0.5) / std::sqrt(3);
                    J[k] = plus(J[k], times(share, point(mesh, mesh.element(e)[n])));
                }
            const double det = dot(J[0], cross(J[1], J[2]));
            check.smallest = std::min(check.smallest, det);
            check.smallest_scaled =
                std::min(check.smallest_scaled, det / (norm(J[0]) * norm(J[1]) * norm(J[2])));
            element += det / 8;
        }
        check.volume += element;
        check.smallest_element = std::min(check.smallest_element, element);
        check.largest_element = std::max(check.largest_element, element);
    }
    return check;
}
inline JacobianCheck check_tetrahedra(const Mesh& mesh) {
    JacobianCheck check;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        Vec3 edge[3];
        for (int k = 0; k < 3; ++k)
            edge[k] = minus(point(mesh, mesh.element(e)[k + 1]), point(mesh, mesh.element(e)[0]));
        const double volume = dot(edge[0], cross(edge[1], edge[2])) / 6;
        check.smallest = std::min(check.smallest, volume);
        check.volume += volume;
    }
    return check;
}

// Bodies not connected through shared nodes; nodes that no element uses count as bodies too.
inline int count_bodies(const Mesh& mesh) {
    const std::vector<std::int32_t> lowest = connected_nodes(mesh);
    return static_cast<int>(std::set(lowest.begin(), lowest.end()).size());
}

}  // namespace kestralum::testing
