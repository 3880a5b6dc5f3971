// Sections, thresholds and surfaces of one value: what is left is closed and has the volume of geometry.
#include "view/trim.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "fields/plane_cut.h"
#include "support/box_mesh.h"
#include "view/occlusion.h"
#include "view/picking.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

// The unit cube with distorted elements inside and flat sides.
Mesh cube(ElementKind kind, int cells = 4) {
    Mesh mesh = box_mesh({{cells, cells, cells},
                          {1, 1, 1},
                          [](double* x) {
                              const double bump =
                                  16 * x[0] * (1 - x[0]) * x[1] * (1 - x[1]) * x[2] * (1 - x[2]);
                              x[0] += 0.05 * bump;
                              x[2] -= 0.04 * bump;
                          }},
                         kind);
    mesh.size_info = {0, 0, 0, 1, 1, 1};
    mesh.max_length = 1;
    return mesh;
}

std::vector<double> nodal(const Mesh& mesh, const std::function<double(const Vec3&)>& field) {
    std::vector<double> values;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) values.push_back(field(place_of(mesh, n)));
    return values;
}

std::vector<double> plane(const Mesh& mesh, const Vec3& point, const Vec3& normal) {
    return distances_to(mesh, {"", point, unit(normal)});
}

struct Figures {
    double area = 0, volume = 0;
    Vec3 closing{};  // sum of the area vectors: 0 of a closed surface
};
Figures measure(const Mesh& mesh, const Trimmed& trimmed) {
    std::vector<double> x = mesh.coordinates;
    extend(trimmed.further, 3, x);
    Figures out;
    const auto& corner = trimmed.surface.triangles;
    for (std::size_t t = 0; t + 2 < corner.size(); t += 3) {
        const Vec3 a = triple(x, corner[t]), b = triple(x, corner[t + 1]), c = triple(x, corner[t + 2]);
        const Vec3 area = times(0.5, cross(minus(b, a), minus(c, a)));
        out.area += norm(area);
        out.volume += dot(area, a) / 3;
        out.closing = plus(out.closing, area);
    }
    return out;
}

// By the divergence theorem, of what several cuts leave together.
TEST(Trim, LeavesAClosedBodyOfTheRightVolume) {
    for (const ElementKind kind : every_kind) {
        const Mesh mesh = cube(kind);
        const Surface outside = build_surface(mesh, Faces::free);
        const auto x = plane(mesh, {0.37, 0, 0}, {1, 0, 0}), y = plane(mesh, {0, 0.61, 0}, {0, 1, 0}),
                   back = plane(mesh, {0.1, 0, 0}, {-1, 0, 0}),
                   middle = plane(mesh, {0.5, 0.5, 0.5}, {1, 1, 1}),
                   beside = plane(mesh, {0, 0, 2}, {0, 0, 1}), all = plane(mesh, {0, 0, -1}, {0, 0, 1});
        const struct {
            std::vector<std::vector<double>> levels;
            double volume, area;
        } cases[] = {{{x}, 0.37, 2 + 4 * 0.37},
                     {{x, y}, 0.37 * 0.61, 2 * (0.37 * 0.61 + 0.37 + 0.61)},
                     {{y, back, x}, 0.27 * 0.61, 2 * (0.27 * 0.61 + 0.27 + 0.61)},
                     {{middle}, 0.5, 3 + 0.75 * std::sqrt(3.0)},
                     {{beside}, 1, 6},
                     {{all}, 0, 0}};
        for (const auto& c : cases) {
            const Figures got = measure(mesh, trim_surface(mesh, outside, {c.levels}));
            // hexahedra with warped faces inside are cut along their edges
            const double exact = kind == ElementKind::hexahedron ? 2e-3 : 1e-11;
            EXPECT_NEAR(got.volume, c.volume, exact);
            EXPECT_NEAR(got.area, c.area, exact);
            EXPECT_NEAR(norm(got.closing), 0, 1e-12);
        }
    }
}

TEST(Trim, FurtherVerticesCarryEveryNodalField) {
    const Mesh mesh = cube(ElementKind::tetrahedron10);
    const Trimmed trimmed = trim_surface(
        mesh, build_surface(mesh, Faces::free),
        {{plane(mesh, {0.4, 0.5, 0.5}, {1, 0.3, 0.2}), plane(mesh, {0.5, 0.5, 0.5}, {-0.2, 1, 0.4})}});
    const auto field = [](const Vec3& x) { return 3 * x[0] - 2 * x[1] + 5 * x[2] + 1; };
    std::vector<double> places = mesh.coordinates, values = nodal(mesh, field);
    extend(trimmed.further, 3, places);
    extend(trimmed.further, 1, values);
    ASSERT_GT(trimmed.further.size(), 100u);
    for (std::size_t v = 0; v < values.size(); ++v) EXPECT_NEAR(values[v], field(triple(places, v)), 1e-12);
    for (const std::int32_t n : trimmed.surface.nodes) EXPECT_LT(n, mesh.node_num());
    // lines of the closing faces lie in the planes or on the outside
    for (const std::int32_t v : trimmed.surface.outline) EXPECT_LT(v, std::ssize(values));
}

// Through the nodes: no vertex stands beside a node, so that the sides of neighbouring polygons are the same.
TEST(Trim, APlaneThroughNodesHasNothingButItsRim) {
    for (const ElementKind kind : every_kind) {
        Mesh mesh = box_mesh({{4, 3, 3}, {1, 1, 1}}, kind);
        mesh.max_length = 1;
        const Trimmed half =
            trim_surface(mesh, build_surface(mesh, Faces::free), {{plane(mesh, {0.5, 0, 0}, {1, 0, 0})}});
        EXPECT_EQ(half.further.size(), 0u);
        EXPECT_NEAR(measure(mesh, half).volume, 0.5, 1e-12);
        double length = 0;
        for (std::size_t k = 0; k + 1 < half.surface.outline.size(); k += 2)
            length += norm(
                minus(place_of(mesh, half.surface.outline[k + 1]), place_of(mesh, half.surface.outline[k])));
        EXPECT_NEAR(length, 4 * 0.5 + 8, 1e-12);
    }
}

TEST(Trim, LeavesOutGonePartsAndKeepsPartsApart) {
    Mesh mesh = cube(ElementKind::hexahedron);
    std::vector<char> gone(mesh.element_num(), 0);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        mesh.p_ele_part_id.push_back(e < mesh.element_num() / 2 ? 0 : 1);  // below and above z = 1/2
        gone[e] = mesh.p_ele_part_id[e] == 1;
    }
    const auto x = plane(mesh, {0.4, 0, 0}, {1, 0, 0});
    const Surface lower = build_surface(mesh, Faces::free, {{0, 1}, {}});
    const Trimmed half = trim_surface(mesh, lower, {{x}, {}, gone});
    for (const PartTriangles& part : half.surface.parts) EXPECT_EQ(part.part, 0);
    EXPECT_NEAR(norm(measure(mesh, half).closing), 0, 1e-12);
    const Trimmed both = trim_surface(mesh, build_surface(mesh, Faces::free), {{x}});
    std::int64_t first = 0;
    for (std::size_t k = 0; k < both.surface.parts.size(); ++k) {
        const PartTriangles& part = both.surface.parts[k];
        EXPECT_EQ(part.first, first);
        first += part.count;
        for (std::int64_t t = part.first; t < first; ++t)
            EXPECT_EQ(mesh.p_ele_part_id[both.surface.triangle_element[t]], part.part);
        if (k > 0) {
            EXPECT_GE(part.part, both.surface.parts[k - 1].part);
        }
    }
    EXPECT_EQ(first, both.surface.triangle_num());
}

// A sphere of radius 0.4, and what a threshold leaves of the cube beside it; a place without a value leaves a
// hole in the surface.
TEST(Trim, SurfacesOfOneValueHaveTheirAreaAndVolume) {
    constexpr double r = 0.4, pi = 3.14159265358979;
    for (const ElementKind kind : {ElementKind::hexahedron, ElementKind::tetrahedron4}) {
        const Mesh mesh = cube(kind, 16);
        const Surface outside = build_surface(mesh, Faces::free);
        std::vector<double> level = nodal(mesh, [](const Vec3& x) {
            return norm(minus(x, {0.5, 0.5, 0.5})) - r;
        });
        const Trimmed sphere = trim_surface(mesh, outside, {{}, {level}, {}, false});
        const Figures got = measure(mesh, sphere);
        EXPECT_NEAR(got.area, 4 * pi * r * r, 0.015 * 4 * pi * r * r);
        EXPECT_NEAR(got.volume, 4 * pi * r * r * r / 3, 0.02 * 4 * pi * r * r * r / 3);
        EXPECT_NEAR(norm(got.closing), 0, 1e-12);
        for (double& v : level) v = -v;  // hide the inside; a hexahedron's polygons are not flat
        const double rest = measure(mesh, trim_surface(mesh, outside, {{level}})).volume;
        EXPECT_NEAR(rest, 1 - got.volume, kind == ElementKind::hexahedron ? 1e-5 : 1e-12);
        level[level.size() / 2 + 150] = std::nan("");
        const Trimmed torn = trim_surface(mesh, outside, {{}, {level}, {}, false});
        EXPECT_LE(torn.surface.triangle_num(), sphere.surface.triangle_num());
        EXPECT_GT(torn.surface.triangle_num(), sphere.surface.triangle_num() / 2);
    }
}

TEST(Trim, ClosingFacesArePickedByTheirElementsNodes) {
    const Mesh mesh = cube(ElementKind::hexahedron);
    const Trimmed trimmed =
        trim_surface(mesh, build_surface(mesh, Faces::free), {{plane(mesh, {0.4, 0, 0}, {1, 0, 0})}});
    std::vector<double> x = mesh.coordinates;
    extend(trimmed.further, 3, x);
    const auto pick = pick_node({{3, 0.52, 0.47}, {-1, 0, 0}}, trimmed.surface, x, 0, trimmed.further);
    ASSERT_TRUE(pick);
    ASSERT_TRUE(pick->node >= 1 && pick->node <= mesh.node_num());
    const auto nodes = mesh.element(pick->element - 1);
    EXPECT_EQ(std::ranges::count(nodes, pick->node), 1);
    EXPECT_LT(norm(minus(place_of(mesh, pick->node - 1), {0.4, 0.5, 0.5})), 0.25);
}

// Open on a plate, half shut in the corner of a wall that stands on it.
TEST(Occlusion, DarkensCornersAndNothingElse) {
    const Mesh mesh = box_mesh({{20, 20, 20}, {1, 1, 1}}, ElementKind::hexahedron);
    std::vector<std::int32_t> away;  // an L along y is left
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        if (e % 20 >= 4 && e / 400 >= 4) away.push_back(e);
    const FaceNumbers numbers = number_faces(mesh);
    const Surface surface = build_surface(mesh, Faces::free, {}, {away, &numbers});
    const std::vector<float> open = open_shares(surface, mesh.coordinates);
    const auto at = [&](int i, int j, int k) { return open[i + 21 * (j + 21 * k)]; };
    EXPECT_EQ(at(18, 10, 4), 1) << "far along the foot";
    EXPECT_EQ(at(10, 10, 0), 1) << "below";
    EXPECT_LT(at(5, 10, 4), 0.75) << "beside the wall";
    EXPECT_GT(at(5, 10, 4), 0.3);
}

}  // namespace
