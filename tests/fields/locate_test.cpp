// Places found in distorted meshes, and fields there that the elements hold exactly.
#include "fields/locate.h"

#include <gtest/gtest.h>

#include "support/box_mesh.h"

namespace kestralum {
namespace {

using namespace testing;

// Elements skewed, stretched and bent, the middles of curved tetrahedra's edges moved with the corners.
Mesh bent_body(ElementKind kind, bool curved) {
    const auto move = [](double* x) {
        const double y = x[1];
        x[0] += 0.3 * y * y + 0.1 * x[2];
        x[1] += 0.1 * x[2] * x[2];
        x[2] *= 0.1 + y;
    };
    Mesh mesh =
        box_mesh({{4, 5, 3}, {2, 1, 0.5}, curved ? nullptr : std::function<void(double*)>(move)}, kind);
    for (std::int32_t n = 0; curved && n < mesh.node_num(); ++n) move(&mesh.coordinates[3 * n]);
    update_extent(mesh);
    return mesh;
}

TEST(Locate, FindsWhatTheShapeFunctionsPlaced) {
    for (const ElementKind kind : every_kind)
        for (const bool curved : {false, true}) {
            const Mesh mesh = bent_body(kind, curved);
            const Locator locator(mesh);
            for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
                const Vec3 at{0.21, 0.33, 0.4};
                Vec3 place{}, again{};
                interpolate(mesh, {e, at}, mesh.coordinates, 3, place.data());
                const Location found = locator.find(place);
                ASSERT_EQ(found.element, e);
                interpolate(mesh, found, mesh.coordinates, 3, again.data());
                for (std::size_t c = 0; c < 3; ++c) {
                    EXPECT_NEAR(found.at[c], at[c], 1e-9);
                    EXPECT_NEAR(again[c], place[c], 1e-13);
                }
            }
            for (std::int32_t n = 0; n < mesh.node_num(); ++n)
                EXPECT_GE(locator.find(place_of(mesh, n)).element, 0) << n;
            for (const Vec3& outside :
                 {Vec3{-0.2, 0.5, 0.2}, Vec3{1, 2, 0.2}, Vec3{1, 0.5, -1e-3}, Vec3{1e9, 0, 0}})
                EXPECT_EQ(locator.find(outside).element, -1);
        }
}

TEST(Locate, LinearFieldsAreExactAndQuadraticOnesOnTenNodes) {
    for (const ElementKind kind : every_kind) {
        const Mesh mesh = bent_body(kind, false);
        const auto linear = [](const Vec3& x) { return 3 - 2 * x[0] + 5 * x[1] - 7 * x[2]; };
        const auto quadratic = [](const Vec3& x) { return x[0] * x[1] - 2 * x[2] * x[2] + x[1] * x[2]; };
        std::vector<double> nodal;
        for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
            nodal.push_back(linear(place_of(mesh, n)));
            nodal.push_back(quadratic(place_of(mesh, n)));
        }
        const Vec3 from{-0.5, 0.1, 0.02}, to{2.6, 0.95, 0.3};
        const auto points = line_points(Locator(mesh), from, to, 101);
        int inside = 0;
        for (const LinePoint& point : points) {
            if (point.where.element < 0) continue;
            ++inside;
            double value[2];
            interpolate(mesh, point.where, nodal, 2, value);
            EXPECT_NEAR(value[0], linear(point.place), 1e-12);
            if (kind == ElementKind::tetrahedron10) {
                EXPECT_NEAR(value[1], quadratic(point.place), 1e-12);
            }
        }
        EXPECT_GT(inside, 60);
        EXPECT_LT(inside, 95);
        EXPECT_EQ(points.front().where.element, -1);
        EXPECT_NEAR(points.back().distance, norm(minus(to, from)), 1e-14);
        EXPECT_EQ(points.back().place, to);
    }
}

}  // namespace
}  // namespace kestralum
