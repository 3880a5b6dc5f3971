#include "model/element_quality.h"

#include <gtest/gtest.h>

#include <numbers>

using namespace kestralum;

namespace {

const double root3 = std::sqrt(3.0);
// Corners, and for ten nodes the middles of the edges.
std::vector<double> tetrahedron(ElementKind kind, std::array<Vec3, 4> corner) {
    std::vector<double> x;
    for (const Vec3& c : corner) x.insert(x.end(), c.begin(), c.end());
    for (std::size_t m = 0; m < 6 && kind == ElementKind::tetrahedron10; ++m) {
        const Vec3 middle = times(0.5, plus(corner[tetra10_edge[m][0]], corner[tetra10_edge[m][1]]));
        x.insert(x.end(), middle.begin(), middle.end());
    }
    return x;
}
std::vector<double> box(Vec3 size) {
    std::vector<double> x;
    for (const auto& corner : hexa_corner)
        for (std::size_t d = 0; d < 3; ++d) x.push_back(corner[d] * size[d]);
    return x;
}

TEST(ElementQuality, OfShapesWithKnownAngles) {
    const std::array<Vec3, 4> regular{
        {{0, 0, 0}, {1, 0, 0}, {0.5, root3 / 2, 0}, {0.5, root3 / 6, std::sqrt(2.0 / 3)}}};
    // four points of a square, nearly in one plane: good triangles that enclose nothing
    const double h = 0.01;
    const std::array<Vec3, 4> sliver{{{0, 0, 0}, {1, 0, h}, {0, 1, h}, {1, 1, 0}}};
    for (const ElementKind kind : {ElementKind::tetrahedron4, ElementKind::tetrahedron10}) {
        const ElementQuality good = element_quality(kind, tetrahedron(kind, regular));
        EXPECT_NEAR(good.angle, 60, 1e-9);  // of the faces; between them it is 70.5
        EXPECT_NEAR(good.jacobian, 1, 1e-12);
        EXPECT_NEAR(good.edge_ratio, 1, 1e-12);
        EXPECT_NEAR(element_determinants(kind, tetrahedron(kind, regular)).smallest, 1 / std::sqrt(2.0),
                    1e-12);
        // faces at an edge of the square: their normals are (h, -h, -1) and (-h, -h, 1)
        const double between = std::acos(1 / (1 + 2 * h * h)) * 180 / std::numbers::pi;
        EXPECT_NEAR(element_quality(kind, tetrahedron(kind, sliver)).angle, between, 1e-9);
        EXPECT_NEAR(element_quality(kind, tetrahedron(kind, sliver)).edge_ratio, std::sqrt(2 / (1 + h * h)),
                    1e-12);
    }
    const ElementQuality brick = element_quality(ElementKind::hexahedron, box({1, 2, 5}));
    EXPECT_NEAR(brick.angle, 90, 1e-9);
    EXPECT_NEAR(brick.jacobian, 1, 1e-12);
    EXPECT_NEAR(brick.edge_ratio, 5, 1e-12);
    EXPECT_NEAR(element_determinants(ElementKind::hexahedron, box({1, 2, 5})).largest, 10, 1e-12);
}

// A mid-side node moved along its edge by d: x(L) has the slope 1 ± 4 d/length at the edge's ends.
TEST(ElementQuality, SeesFoldsThatCornersDoNotShow) {
    const std::array<Vec3, 4> corner{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    for (const double d : {0.1, 0.25, 0.3}) {
        std::vector<double> x = tetrahedron(ElementKind::tetrahedron10, corner);
        x[3 * 4] += d;
        const Determinants found = element_determinants(ElementKind::tetrahedron10, x);
        EXPECT_NEAR(found.smallest, 1 - 4 * d, 1e-12);
        EXPECT_NEAR(found.largest, 1 + 4 * d, 1e-12);
        EXPECT_NEAR(element_quality(ElementKind::tetrahedron10, x).jacobian, (1 - 4 * d) / (1 + 4 * d),
                    1e-12);
    }
    std::vector<double> turned = box({1, 1, 1});
    for (std::size_t k = 0; k < 8; ++k) turned[3 * k] *= -1;
    EXPECT_LE(element_quality(ElementKind::hexahedron, turned).jacobian, 0);
}

}  // namespace
