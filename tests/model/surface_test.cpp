// Face tables, free faces and node normals, measured on boxes of every element kind.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "support/box_mesh.h"
#include "support/mesh_geometry.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

Vec3 corner_of(const Mesh& mesh, std::int32_t element, int k) {
    return point(mesh, mesh.connectivity[static_cast<std::size_t>(element * mesh.node_per_element() + k)]);
}

Vec3 normal_of(const Mesh& mesh, std::int32_t node) {
    return triple(mesh.node_n_dir, node_index(node));
}

// A shear and stretch that moves the origin too.
void skew(double* x) {
    const double y[3] = {1.4 * x[0] + 0.3 * x[1], 1.5 * x[1] + 0.2 * x[2], x[2]};
    for (int c = 0; c < 3; ++c) x[c] = y[c] + 5 + c;
}

class EveryKind : public ::testing::TestWithParam<ElementKind> {};
INSTANTIATE_TEST_SUITE_P(Surface, EveryKind,
                         ::testing::Values(ElementKind::hexahedron, ElementKind::tetrahedron4,
                                           ElementKind::tetrahedron10));

}  // namespace

TEST_P(EveryKind, EveryTriangleOfEveryFaceWindsOutwards) {
    const Mesh mesh = box_mesh({{3, 2, 4}, {3, 1, 2}, skew}, GetParam());
    const int nodes = mesh.node_per_element();
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        Vec3 centre{};
        for (int k = 0; k < nodes; ++k)
            for (std::size_t c = 0; c < 3; ++c) centre[c] += corner_of(mesh, e, k)[c] / nodes;
        std::set<std::pair<Vec3, Vec3>> open_edges;  // met in this direction only
        for (std::int32_t f = 0; f < face_table(GetParam()).faces; ++f) {
            std::set<Vec3> on_face;
            for (int corner : face_corners(GetParam(), f)) on_face.insert(corner_of(mesh, e, corner));
            std::size_t corners_met = 0;
            for_each_triangle(mesh, {e, f}, [&](const Vec3& a, const Vec3& b, const Vec3& c) {
                EXPECT_GT(dot(cross(minus(b, a), minus(c, a)), minus(a, centre)), 0)
                    << "element " << e << " face " << f;
                for (const Vec3& p : {a, b, c}) corners_met += on_face.erase(p);
                for (const auto& [from, to] : {std::pair{a, b}, {b, c}, {c, a}})
                    if (!open_edges.erase({to, from})) open_edges.insert({from, to});
            });
            EXPECT_EQ(corners_met, face_corners(GetParam(), f).size())
                << "corners and triangles tell of different faces";
        }
        EXPECT_TRUE(open_edges.empty()) << "the triangles do not close around element " << e;
    }
}

TEST_P(EveryKind, ACavityIsSurfaceToo) {
    Mesh mesh = box_mesh({{3, 3, 3}, {3, 3, 3}}, GetParam());
    const int nodes = mesh.node_per_element();
    std::vector<std::int32_t> kept;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        bool in_middle = true;
        for (int k = 0; k < nodes; ++k)
            for (double x : corner_of(mesh, e, k)) in_middle = in_middle && x >= 1 && x <= 2;
        const std::int32_t* element = &mesh.connectivity[static_cast<std::size_t>(e * nodes)];
        if (!in_middle) kept.insert(kept.end(), element, element + nodes);
    }
    ASSERT_LT(kept.size(), mesh.connectivity.size());
    mesh.connectivity = kept;
    const auto faces = free_faces(mesh);
    EXPECT_EQ(faces.size(), (54u + 6u) * (GetParam() == ElementKind::hexahedron ? 1 : 2));
    EXPECT_TRUE(
        std::ranges::is_sorted(faces, {}, [](const ElementFace& f) { return std::pair(f.element, f.face); }));
    EXPECT_NEAR(volume_inside_surface(mesh), 26, 1e-12);
    update_node_normals(mesh);
    // the cavity's corner (1, 1, 1): out of the material is into the cavity
    int corners = 0;
    for (std::int32_t n = 1; n <= mesh.node_num(); ++n) {
        if (point(mesh, n) != Vec3{1, 1, 1}) continue;
        ++corners;
        for (double component : normal_of(mesh, n)) EXPECT_GT(component, 0.4);
    }
    EXPECT_EQ(corners, 1);
}

TEST_P(EveryKind, NormalsAreUnitOutwardAndZeroInside) {
    Mesh mesh = box_mesh({{3, 3, 3}, {3, 6, 1.5}}, GetParam());
    mesh.node_n_dir.assign(7, 1e9);  // what an earlier mesh left
    update_node_normals(mesh);
    ASSERT_EQ(mesh.node_n_dir.size(), mesh.coordinates.size());
    const Vec3 size{3, 6, 1.5};
    for (std::int32_t n = 1; n <= mesh.node_num(); ++n) {
        SCOPED_TRACE(n);
        const Vec3 x = point(mesh, n), normal = normal_of(mesh, n);
        Vec3 side{};  // sum of the normals of the box faces that the node lies on
        for (std::size_t c = 0; c < 3; ++c) side[c] = (x[c] == size[c]) - (x[c] == 0);
        const double sides = dot(side, side);
        EXPECT_NEAR(dot(normal, normal), sides ? 1 : 0, 1e-14);
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_EQ(normal[c] == 0, side[c] == 0);
            EXPECT_GE(normal[c] * side[c], 0);
        }
    }
}

TEST(NodeNormals, EveryFaceCountsWithItsAreaHoweverItIsCutIntoTriangles) {
    // eight cells of 1 × 2 × 4: at each corner of the box one face of 8, one of 4 and one of 2 m^2
    const Mesh mesh = hexa_box({{2, 2, 2}, {2, 4, 8}});
    const double length = std::sqrt(8. * 8 + 4 * 4 + 2 * 2);
    int corners = 0;
    for (std::int32_t n = 1; n <= mesh.node_num(); ++n) {
        const Vec3 x = point(mesh, n), area{8, 4, 2};
        const Vec3 sign{x[0] - 1, (x[1] - 2) / 2, (x[2] - 4) / 4};
        if (sign[0] * sign[1] * sign[2] == 0) continue;
        ++corners;
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(normal_of(mesh, n)[c], sign[c] * area[c] / length, 1e-14);
    }
    EXPECT_EQ(corners, 8);
}

TEST(ElementKindTable, AnyOtherFileValueCountsAsHexahedron) {
    const auto odd = static_cast<ElementKind>(7);
    EXPECT_EQ(nodes_per_element(odd), 8);
    EXPECT_EQ(face_table(odd).faces, 6);
    EXPECT_EQ(outward_triangles(odd, 5).size(), 6u);
}
