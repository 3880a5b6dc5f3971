// Free faces and node normals, measured on boxes of every element kind.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/box_mesh.h"
#include "support/mesh_geometry.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

Vec3 normal_of(const Mesh& mesh, std::int32_t node) {
    return triple(mesh.node_n_dir, node_index(node));
}

class EveryKind : public ::testing::TestWithParam<ElementKind> {};
INSTANTIATE_TEST_SUITE_P(Surface, EveryKind, ::testing::ValuesIn(every_kind));

}  // namespace

// Also with the faces that never lie on a box's surface.
TEST_P(EveryKind, EachElementHasItsVolumeInsideItsFaces) {
    const Mesh mesh =
        box_mesh({{3, 2, 4}, {3, 1, 2}, [](double* x) { x[0] += 5, x[1] += 6, x[2] += 7; }}, GetParam());
    Mesh one = mesh;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        one.connectivity.assign(mesh.element(e).begin(), mesh.element(e).end());
        EXPECT_NEAR(volume_inside_surface(one), 6.0 / mesh.element_num(), 1e-12);
    }
}

TEST_P(EveryKind, ACavityIsSurfaceToo) {
    Mesh mesh = box_mesh({{3, 3, 3}, {3, 3, 3}}, GetParam());
    std::vector<std::int32_t> kept;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto element = mesh.element(e);
        const bool in_middle = std::ranges::all_of(element, [&](std::int32_t n) {
            return std::ranges::all_of(point(mesh, n), [](double x) { return x >= 1 && x <= 2; });
        });
        if (!in_middle) kept.insert(kept.end(), element.begin(), element.end());
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
