// Face tables, free faces and node normals, measured on boxes of every element kind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "model/free_faces.h"
#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

using Vector = std::array<double, 3>;

Vector node_of(const Mesh& mesh, std::int32_t number) {
    const auto at = 3 * static_cast<std::size_t>(node_index(number));
    return {mesh.coordinates[at], mesh.coordinates[at + 1], mesh.coordinates[at + 2]};
}

Vector minus(const Vector& a, const Vector& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
Vector cross(const Vector& a, const Vector& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double dot(const Vector& a, const Vector& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// Visits the outward triangles of one face with their corners.
template <typename Visit>
void for_each_triangle(const Mesh& mesh, const ElementFace& face, Visit visit) {
    const std::int32_t* element = mesh.connectivity.data() + face.element * mesh.node_per_element();
    const auto local = outward_triangles(mesh.element_type, face.face);
    ASSERT_EQ(local.size(), 3u * static_cast<std::size_t>(face_table(mesh.element_type).triangles_per_face));
    for (std::size_t t = 0; t < local.size(); t += 3)
        visit(node_of(mesh, element[local[t]]), node_of(mesh, element[local[t + 1]]),
              node_of(mesh, element[local[t + 2]]));
}

// Divergence theorem over the surface: Σ a·(b×c)/6.
double volume_inside(const Mesh& mesh, std::span<const ElementFace> faces) {
    double volume = 0;
    for (const ElementFace& face : faces)
        for_each_triangle(mesh, face, [&](const Vector& a, const Vector& b, const Vector& c) {
            volume += dot(a, cross(b, c)) / 6;
        });
    return volume;
}

// A shear and stretch that moves the origin too; the volume grows by its determinant, 2.1.
void skew(double* x) {
    const double y[3] = {1.4 * x[0] + 0.3 * x[1], 1.5 * x[1] + 0.2 * x[2], x[2]};
    for (int c = 0; c < 3; ++c) x[c] = y[c] + 5 + c;
}
const Grid skewed{{3, 2, 4}, {3, 1, 2}, skew};
constexpr double skewed_volume = 6 * 2.1;

class EveryKind : public ::testing::TestWithParam<ElementKind> {};
INSTANTIATE_TEST_SUITE_P(Surface, EveryKind,
                         ::testing::Values(ElementKind::hexahedron, ElementKind::tetrahedron4,
                                           ElementKind::tetrahedron10));

}  // namespace

TEST_P(EveryKind, SurfaceEnclosesTheVolume) {
    const Mesh mesh = box_mesh(skewed, GetParam());
    const auto faces = free_faces(mesh);
    const std::size_t cell_faces = 2 * (3 * 2 + 2 * 4 + 4 * 3);
    EXPECT_EQ(faces.size(), GetParam() == ElementKind::hexahedron ? cell_faces : 2 * cell_faces);
    EXPECT_NEAR(volume_inside(mesh, faces), skewed_volume, 1e-12 * 1000);  // the box lies 5 to 7 m off
    EXPECT_TRUE(
        std::ranges::is_sorted(faces, {}, [](const ElementFace& f) { return std::pair(f.element, f.face); }));
}

TEST_P(EveryKind, EveryTriangleOfEveryFaceWindsOutwards) {
    const Mesh mesh = box_mesh(skewed, GetParam());
    const int nodes = mesh.node_per_element();
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        Vector centre{};
        for (int k = 0; k < nodes; ++k)
            for (std::size_t c = 0; c < 3; ++c)
                centre[c] +=
                    node_of(mesh, mesh.connectivity[static_cast<std::size_t>(e * nodes + k)])[c] / nodes;
        for (std::int32_t f = 0; f < face_table(GetParam()).faces; ++f) {
            std::set<Vector> on_face;
            for (int corner : face_corners(GetParam(), f))
                on_face.insert(
                    node_of(mesh, mesh.connectivity[static_cast<std::size_t>(e * nodes + corner)]));
            std::size_t corners_met = 0;
            for_each_triangle(mesh, {e, f}, [&](const Vector& a, const Vector& b, const Vector& c) {
                EXPECT_GT(dot(cross(minus(b, a), minus(c, a)), minus(a, centre)), 0)
                    << "element " << e << " face " << f;
                for (const Vector& p : {a, b, c}) corners_met += on_face.erase(p);
            });
            EXPECT_EQ(corners_met, face_corners(GetParam(), f).size())
                << "corners and triangles tell of different faces";
        }
    }
}

TEST_P(EveryKind, ACavityIsSurfaceToo) {
    Mesh mesh = box_mesh({{3, 3, 3}, {3, 3, 3}}, GetParam());
    const auto in_middle = [&](std::size_t e, std::size_t nodes) {
        for (std::size_t k = 0; k < nodes; ++k)
            for (double x : node_of(mesh, mesh.connectivity[e * nodes + k]))
                if (x < 1 || x > 2) return false;
        return true;
    };
    const auto nodes = static_cast<std::size_t>(mesh.node_per_element());
    std::vector<std::int32_t> kept;
    for (std::size_t e = 0; e < static_cast<std::size_t>(mesh.element_num()); ++e)
        if (!in_middle(e, nodes))
            kept.insert(kept.end(), &mesh.connectivity[e * nodes], &mesh.connectivity[e * nodes] + nodes);
    ASSERT_LT(kept.size(), mesh.connectivity.size());
    mesh.connectivity = kept;
    const auto faces = free_faces(mesh);
    EXPECT_EQ(faces.size(), (54u + 6u) * (GetParam() == ElementKind::hexahedron ? 1 : 2));
    EXPECT_NEAR(volume_inside(mesh, faces), 26, 1e-12);
    update_node_normals(mesh);
    // the cavity's corner (1, 1, 1): out of the material is into the cavity
    int corners = 0;
    for (std::int32_t n = 1; n <= mesh.node_num(); ++n) {
        if (node_of(mesh, n) != Vector{1, 1, 1}) continue;
        ++corners;
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_GT(mesh.node_n_dir[3 * static_cast<std::size_t>(n - 1) + c], 0.4);
    }
    EXPECT_EQ(corners, 1);
}

TEST_P(EveryKind, NormalsAreUnitOutwardAndZeroInside) {
    Mesh mesh = box_mesh({{3, 3, 3}, {3, 6, 1.5}}, GetParam());
    mesh.node_n_dir.assign(7, 1e9);  // what an earlier mesh left
    update_node_normals(mesh);
    ASSERT_EQ(mesh.node_n_dir.size(), mesh.coordinates.size());
    const Vector size{3, 6, 1.5};
    for (std::int32_t n = 1; n <= mesh.node_num(); ++n) {
        const Vector x = node_of(mesh, n);
        Vector side{};  // sum of the normals of the box faces that the node lies on
        int sides = 0;
        for (std::size_t c = 0; c < 3; ++c)
            if (x[c] == 0 || x[c] == size[c]) {
                side[c] = x[c] == 0 ? -1 : 1;
                ++sides;
            }
        const double* d = &mesh.node_n_dir[3 * static_cast<std::size_t>(n - 1)];
        const Vector normal{d[0], d[1], d[2]};
        EXPECT_NEAR(dot(normal, normal), sides ? 1 : 0, 1e-14);
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_EQ(normal[c] == 0, side[c] == 0) << "node " << n;
            if (sides == 1) {
                EXPECT_NEAR(normal[c], side[c], 1e-14) << "node " << n;
            }
            EXPECT_GE(normal[c] * side[c], 0) << "node " << n;
        }
    }
}

TEST(NodeNormals, EveryFaceCountsWithItsAreaHoweverItIsCutIntoTriangles) {
    // eight cells of 1 × 2 × 4: at each corner of the box one face of 8, one of 4 and one of 2 m^2
    const Mesh mesh = hexa_box({{2, 2, 2}, {2, 4, 8}});
    const double length = std::sqrt(8. * 8 + 4 * 4 + 2 * 2);
    int corners = 0;
    for (std::int32_t n = 1; n <= mesh.node_num(); ++n) {
        const Vector x = node_of(mesh, n);
        const Vector sign{x[0] - 1, (x[1] - 2) / 2, (x[2] - 4) / 4};
        if (sign[0] * sign[1] * sign[2] == 0) continue;
        ++corners;
        const double* d = &mesh.node_n_dir[3 * static_cast<std::size_t>(n - 1)];
        EXPECT_NEAR(d[0], sign[0] * 8 / length, 1e-14);
        EXPECT_NEAR(d[1], sign[1] * 4 / length, 1e-14);
        EXPECT_NEAR(d[2], sign[2] * 2 / length, 1e-14);
    }
    EXPECT_EQ(corners, 8);
}

TEST(ElementKindTable, AnyOtherFileValueCountsAsHexahedron) {
    const auto odd = static_cast<ElementKind>(7);
    EXPECT_EQ(nodes_per_element(odd), 8);
    EXPECT_EQ(face_table(odd).faces, 6);
    EXPECT_EQ(outward_triangles(odd, 5).size(), 6u);
    for (const auto& edge : tetra10_edge) EXPECT_LT(edge[0], edge[1]);
}
