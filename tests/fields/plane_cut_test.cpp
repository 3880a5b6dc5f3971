// Cuts by planes against areas known from geometry, and forces of known stresses over them.
#include "fields/plane_cut.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "fields/section_forces.h"
#include "support/box_mesh.h"

namespace kestralum {
namespace {

using namespace testing;

SectionPlane plane_at(const Vec3& point, const Vec3& normal) {
    return {"", point, unit(normal)};
}

double sum_of_areas(const PlaneCut& cut, const Mesh& mesh, std::span<const double> u = {}) {
    double sum = 0;
    for (const double area : areas_of(cut, places_of(cut, mesh, u))) sum += area;
    return sum;
}

// The unit cube, its inner nodes moved so that the elements are distorted.
Mesh distorted_cube(ElementKind kind) {
    const auto move = [](double* x) {
        const double bump = 0.2 * x[0] * (1 - x[0]) * x[1] * (1 - x[1]) * x[2] * (1 - x[2]);
        x[0] += 2 * bump;
        x[1] -= 3 * bump;
        x[2] += bump;
    };
    return box_mesh({{3, 4, 3}, {1, 1, 1}, move}, kind);
}

TEST(PlaneCut, HasTheAreasOfTheCubesSections) {
    const double r3 = std::sqrt(3.0);
    for (const ElementKind kind : every_kind) {
        const Mesh mesh = distorted_cube(kind);
        const struct {
            SectionPlane plane;
            double area;
        } cases[] = {{plane_at({0.5, 0.5, 0.5}, {1, 1, 1}), 0.75 * r3},        // a hexagon
                     {plane_at({0.5, 0, 0}, {-1, -1, -1}), 0.125 * r3},        // a triangle
                     {plane_at({0.5, 0.5, 0.5}, {1, -1, 0}), std::sqrt(2.0)},  // through four edges
                     {plane_at({0.37, 0, 0}, {1, 0, 0}), 1.0},
                     {plane_at({0, 0, 0}, {0, 1, 0}), 1.0},   // a face, from inside
                     {plane_at({0, 1, 0}, {0, 1, 0}), 0.0},   // the same from outside
                     {plane_at({0, 0, 2}, {0, 0, 1}), 0.0}};  // beside it
        for (const auto& c : cases) {
            const PlaneCut cut = cut_mesh(mesh, c.plane);
            // inner hexahedra with faces that are not flat are cut along the faces' edges alone
            EXPECT_NEAR(sum_of_areas(cut, mesh), c.area, kind == ElementKind::hexahedron ? 2e-3 : 1e-12);
            const std::vector<double> places = places_of(cut, mesh);
            for (std::size_t v = 0; v < cut.vertices(); ++v)
                EXPECT_NEAR(dot(minus(triple(places, v), c.plane.point), c.plane.normal), 0, 1e-12);
        }
    }
}

TEST(PlaneCut, OfFlatSidedElementsLeavesNoGaps) {
    for (const ElementKind kind : every_kind) {
        const Mesh mesh = box_mesh({{3, 2, 4}, {1, 1, 1}}, kind);
        const SectionPlane plane = plane_at({0.4, 0.5, 0.45}, {1, -0.3, 0.7});
        const PlaneCut cut = cut_mesh(mesh, plane);
        // each side of a polygon is met by its neighbour's the other way round, but for those on the outside
        std::map<std::pair<std::int32_t, std::int32_t>, int> sides;
        for (std::size_t p = 0; p < cut.polygons(); ++p) {
            const auto ring = cut.polygon(p);
            for (std::size_t k = 0; k < ring.size(); ++k) ++sides[{ring[k], ring[(k + 1) % ring.size()]}];
        }
        const std::vector<double> places = places_of(cut, mesh);
        const auto is_outside = [&](std::int32_t v, std::int32_t w) {
            for (std::size_t c = 0; c < 3; ++c)
                for (const double side : {0.0, 1.0})
                    if (std::abs(places[3 * v + c] - side) + std::abs(places[3 * w + c] - side) < 1e-12)
                        return true;
            return false;
        };
        std::size_t inner = 0;
        for (const auto& [side, count] : sides) {
            EXPECT_EQ(count, 1);
            const bool met = sides.contains({side.second, side.first});
            EXPECT_NE(met, is_outside(side.first, side.second));
            inner += met;
        }
        EXPECT_GT(inner, 10u);
        double volume = 0;  // of slices (Cavalieri)
        const int slices = 400;
        for (int k = 0; k < slices; ++k) {
            const double at = -0.3 + 2.0 * (k + 0.5) / slices;
            SectionPlane slice = plane;
            slice.point = times(at / norm({1, -0.3, 0.7}), plane.normal);
            volume += sum_of_areas(cut_mesh(mesh, slice), mesh) * 2.0 / slices / norm({1, -0.3, 0.7});
        }
        EXPECT_NEAR(volume, 1, 1e-4);
    }
}

// On a shape that is displaced, with values that vary linearly.
TEST(PlaneCut, InterpolatesLinearFieldsExactlyOnTheDisplacedShape) {
    for (const ElementKind kind : every_kind) {
        const Mesh mesh = distorted_cube(kind);
        std::vector<double> u, value;
        for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
            const Vec3 x = place_of(mesh, n);
            const Vec3 moved{x[0] + 3 * x[1], x[1], 2 * x[2]};  // sheared, stretched
            for (std::size_t c = 0; c < 3; ++c) u.push_back(moved[c] - x[c]);
            value.push_back(1 + moved[0] - 2 * moved[1] + 3 * moved[2]);
        }
        const PlaneCut cut = cut_mesh(mesh, plane_at({0, 0, 0.6}, {0, 0, 1}), u);
        EXPECT_NEAR(sum_of_areas(cut, mesh, u), 1, kind == ElementKind::hexahedron ? 2e-3 : 1e-12);
        const auto places = places_of(cut, mesh, u), values = values_at(cut, value, 1);
        for (std::size_t v = 0; v < cut.vertices(); ++v) {
            const Vec3 x = triple(places, v);
            EXPECT_NEAR(x[2], 0.6, 1e-12);
            EXPECT_NEAR(values[v], 1 + x[0] - 2 * x[1] + 3 * x[2], 1e-12);
        }
    }
}

// σ of a bar that is pulled, bent and twisted: the forces are those of the sections' integrals.
TEST(SectionForces, OfNodalStressesAreTheirIntegrals) {
    for (const ElementKind kind : every_kind) {
        const Mesh mesh = box_mesh({{3, 4, 3}, {2, 0.6, 0.4}}, kind);
        Frame frame(mesh.dof_num());
        const std::size_t dofs = mesh.coordinates.size();
        for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
            const double* x = mesh.node(n);
            frame.node_stress[3 * n] = 5 + 7 * (x[2] - 0.2);          // xx
            frame.node_stress[dofs + 3 * n] = 11;                     // xy
            frame.node_stress[dofs + 3 * n + 2] = 13 * (x[1] - 0.3);  // zx
        }
        const SectionSum sum = section_of_stresses(mesh, frame, plane_at({0.9, 0, 0}, {1, 0, 0}));
        const double area = 0.24, I_y = 0.6 * std::pow(0.4, 3) / 12, I_z = 0.4 * std::pow(0.6, 3) / 12;
        const Vec3 force{5 * area, 11 * area, 0}, moment{13 * I_z, 7 * I_y, 0}, centre{0.9, 0.3, 0.2};
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_NEAR(sum.carried.force[c], force[c], 1e-12);
            EXPECT_NEAR(sum.carried.moment[c], moment[c], 1e-12);
            EXPECT_NEAR(sum.centre[c], centre[c], 1e-12);
        }
        EXPECT_NEAR(sum.area, area, 1e-12);
    }
}

}  // namespace
}  // namespace kestralum
