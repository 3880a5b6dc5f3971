// Loads on faces and in bodies against the stresses, resultants and volumes that they must agree with.
#include <gtest/gtest.h>
#include <algorithm>

#include <cmath>
#include <numbers>

#include "conditions/surface_loads.h"
#include "elements/body_loads.h"
#include "model/free_faces.h"
#include "support/assembled.h"
#include "support/box_mesh.h"

namespace kestralum {
namespace {

using testing::Grid;
constexpr Vec3 box{0.3, 0.36, 0.42};

// Cells whose nodes are moved about by up to a fifth of a cell, in the faces' planes or everywhere; there the
// middles of edges leave the edges too.
Mesh uneven(ElementKind kind, int cells, bool everywhere) {
    Mesh mesh =
        testing::box_mesh({{cells, cells, cells},
                           box,
                           [=](double* x) {
                               const Vec3 X{x[0], x[1], x[2]};
                               for (std::size_t c = 0; c < 3; ++c)
                                   if (everywhere || (X[c] > 1e-9 && X[c] < box[c] - 1e-9))
                                       x[c] += box[c] / (5 * cells) *
                                               std::sin(50 * X[0] + 31 * X[1] * double(c + 1) + 23 * X[2]);
                           }},
                          kind);
    const std::int32_t corners = (cells + 1) * (cells + 1) * (cells + 1);
    for (std::int32_t n = corners; everywhere && n < mesh.node_num(); ++n)
        for (int c = 0; c < 3; ++c) mesh.coordinates[3 * n + c] += 0.008 / cells * std::sin(3.7 * n + 2 * c);
    return mesh;
}

FieldExpression field(std::function<double(const double*)> value) {
    return {"test", false, [=](const double* x, double) { return value(x); }};
}
FieldExpression constant(double value) {
    return field([=](const double*) { return value; });
}

std::vector<ElementFace> faces_where(const Mesh& mesh, const std::function<bool(const Vec3&)>& holds) {
    std::vector<ElementFace> faces;
    for (const ElementFace& face : free_faces(mesh))
        if (std::ranges::all_of(face_corners(mesh.element_type, face.face), [&](int k) {
                return holds(place_of(mesh, node_index(mesh.element(face.element)[k])));
            }))
            faces.push_back(face);
    return faces;
}

std::vector<double> zero(const Mesh& mesh) {
    return std::vector<double>(mesh.coordinates.size(), 0.0);
}
Vec3 resultant(std::span<const double> nodal) {
    Vec3 sum{};
    for (std::size_t n = 0; n < nodal.size() / 3; ++n) sum = plus(sum, triple(nodal, n));
    return sum;
}
Vec3 moment(const Mesh& mesh, std::span<const double> nodal, const Vec3& about = {}) {
    Vec3 sum{};
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        sum = plus(sum, cross(minus(place_of(mesh, n), about), triple(nodal, n)));
    return sum;
}
void expect_near(std::span<const double> a, std::span<const double> b, double tolerance) {
    for (std::size_t k = 0; k < a.size(); ++k) ASSERT_NEAR(a[k], b[k], tolerance) << k;
}
std::vector<double> waves(std::size_t size, double amplitude) {
    std::vector<double> u(size);
    for (std::size_t k = 0; k < size; ++k) u[k] = amplitude * std::sin(2.3 * double(k) + 1);
    return u;
}

class Faces : public ::testing::TestWithParam<ElementKind> {};

TEST_P(Faces, OneTractionFromForceTractionAndPressureIsThatOfItsStress) {
    const Mesh mesh = uneven(GetParam(), 3, false);
    const auto end = faces_where(mesh, [](const Vec3& x) { return x[2] > box[2] - 1e-9; });
    const double traction = 40e6, force = traction * box[0] * box[1];
    const std::vector<double> stress = testing::end_forces(mesh, 2, traction);
    std::vector<double> by_force = zero(mesh), by_traction = zero(mesh), by_pressure = zero(mesh),
                        by_remote = zero(mesh);
    add_force(mesh, end, {0, 0, force}, by_force);
    add_traction(mesh, end, {constant(0), constant(0), constant(traction)}, 0, by_traction);
    add_pressure(mesh, end, constant(-2 * traction), 0, 0.5, {}, by_pressure);
    EXPECT_EQ(add_remote(mesh, end, {box[0] / 2, box[1] / 2, 7}, {0, 0, force}, {}, by_remote), "");
    for (const auto& nodal : {by_force, by_traction, by_pressure, by_remote})
        expect_near(nodal, stress, 1e-9 * force);
}

// Archimedes: the pressure a + b·x on a body's surface has the resultant -b V and acts in its middle; one
// without a gradient has no resultant and no moment, and Σ f·x = -3 p V.
TEST_P(Faces, PressureAllAroundIsInBalanceAtRestAndDisplaced) {
    Mesh mesh = uneven(GetParam(), 2, true);
    const auto all = free_faces(mesh);
    const std::vector<double> u = waves(mesh.coordinates.size(), 0.01);
    for (const bool displaced : {false, true}) {
        std::vector<double> nodal = zero(mesh), buoyant = zero(mesh);
        add_pressure(mesh, all, constant(3), 0, 1, displaced ? u : std::vector<double>{}, nodal);
        if (displaced)
            for (std::size_t d = 0; d < u.size(); ++d) mesh.coordinates[d] += u[d];
        double volume = 0, work = 0;
        const ElementType& type = element_type(mesh.element_type);
        for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
            ElementPoints points;
            std::array<double, most_nodes * most_nodes> me;
            ASSERT_TRUE(evaluate_points(type, mesh, e, points));
            type.mass(points.x.data(), me.data());
            for (int k = 0; k < type.nodes * type.nodes; ++k) volume += me[k];
        }
        for (std::size_t d = 0; d < nodal.size(); ++d) work += nodal[d] * mesh.coordinates[d];
        EXPECT_NEAR(work, -9 * volume, 1e-14);
        EXPECT_LT(norm(resultant(nodal)), 1e-14);
        EXPECT_LT(norm(moment(mesh, nodal)), 1e-14);
        const Vec3 b{5, -7, 11};
        add_pressure(mesh, all, field([&](const double* x) {
                         return 2 + dot(b, {x[0], x[1], x[2]});
                     }),
                     0, 1, {}, buoyant);
        expect_near(resultant(buoyant), times(-volume, b), 1e-13);
    }
}

// The nodal forces are of second degree in the displacements: central differences are exact.
TEST_P(Faces, StiffnessOfPressureIsTheSymmetricHalfOfItsDerivative) {
    const Mesh mesh = uneven(GetParam(), 1, true);
    const std::size_t size = mesh.coordinates.size();
    const auto all = free_faces(mesh);
    const struct {
        std::vector<ElementFace> faces;
        FieldExpression pressure;
        bool symmetric;
    } cases[] = {{all, constant(3e5), true},
                 {{all.begin(), all.begin() + 2}, field([](const double* x) { return 1e6 * x[1]; }), false}};
    for (const auto& c : cases) {
        std::vector<double> u = waves(size, 0.02), K(size * size, 0.0), J(size * size);
        pressure_stiffness(mesh, c.faces, c.pressure, 0, 2, u, [&](auto nodes, auto block) {
            for (std::size_t k = 0; k < block.size(); ++k) {
                const std::size_t row = k / (3 * nodes.size()), col = k % (3 * nodes.size());
                K[size * (3 * nodes[row / 3] + row % 3) + 3 * nodes[col / 3] + col % 3] += block[k];
            }
        });
        for (std::size_t d = 0; d < size; ++d) {
            std::vector<double> up = zero(mesh), down = zero(mesh);
            const double at = u[d], step = 0.01;
            u[d] = at + step;
            add_pressure(mesh, c.faces, c.pressure, 0, 2, u, up);
            u[d] = at - step;
            add_pressure(mesh, c.faces, c.pressure, 0, 2, u, down);
            u[d] = at;
            for (std::size_t r = 0; r < size; ++r) J[size * r + d] = (up[r] - down[r]) / (2 * step);
        }
        double skew = 0, largest = 0;
        for (std::size_t k = 0; k < K.size(); ++k) {
            const double across = J[k % size * size + k / size];
            ASSERT_NEAR(K[k], -(J[k] + across) / 2, 1e-6);
            skew = std::max(skew, std::abs(J[k] - across));
            largest = std::max(largest, std::abs(K[k]));
        }
        EXPECT_GT(largest, 1e3);
        EXPECT_EQ(skew < 1e-6, c.symmetric) << skew;
    }
}

TEST_P(Faces, SpringsPushBackByTheirStiffnessTimesTheArea) {
    const Mesh mesh = uneven(GetParam(), 3, false);
    const auto side = faces_where(mesh, [](const Vec3& x) { return x[1] < 1e-9; });
    std::vector<double> back = zero(mesh);
    const Vec3 motion{0.1, 0.2, 0.3};
    surface_springs(mesh, side, field([](const double* x) { return 1e6 * x[0]; }), constant(5e6),
                    [&](auto nodes, auto block) {
                        for (std::size_t k = 0; k < block.size(); ++k) {
                            const std::size_t row = k / (3 * nodes.size());
                            back[3 * nodes[row / 3] + row % 3] += block[k] * motion[k % 3];
                        }
                    });
    const FieldExpression falling = field([](const double* x) { return 0.2 - x[0]; });
    EXPECT_EQ(wrong_value_on(mesh, side, "BED", falling, 1), "");
    EXPECT_TRUE(wrong_value_on(mesh, side, "BED", falling, 1, 0).starts_with("BED: 'test' is -0."));
    EXPECT_EQ(wrong_value("BED", constant(INFINITY), nullptr, 2), "BED: 'test' is inf at time 2");
    const double area = box[0] * box[2], all = 1e6 * box[0] / 2 * area;
    expect_near(resultant(back), Vec3{all * 0.1, (all + 5e6 * area) * 0.2, all * 0.3}, 1e-8);
}

TEST_P(Faces, RemoteForceAndMomentArriveWhole) {
    const Mesh mesh = uneven(GetParam(), 2, true);
    const auto some = faces_where(mesh, [](const Vec3& x) { return x[0] > 0.25; });
    std::vector<double> nodal = zero(mesh);
    const Vec3 point{1, -2, 0.5}, force{100, 200, -300}, turn{50, -60, 70};
    EXPECT_EQ(add_remote(mesh, some, point, force, turn, nodal), "");
    expect_near(resultant(nodal), force, 1e-10);
    expect_near(moment(mesh, nodal, point), turn, 1e-9);
    EXPECT_NE(add_remote(mesh, {}, point, force, turn, nodal), "");
}

// A slanted bore of 48 cells around, half of it or all; the cosine's pressure adds up to 4/π of its
// resultant.
TEST_P(Faces, BearingPressesOneHalfOfTheBoreOnly) {
    const auto axis = unit({1, 2, 3});
    const Vec3 e1 = across(axis), e2 = cross(axis, e1);
    const auto bore_of = [&](double arc, double bulge) {
        return testing::box_mesh(
            {{48, 1, 5},
             {arc, 1, 0.3},
             [=](double* x) {
                 const double z = x[2], a = x[0], r = 0.1 + 0.05 * x[1] + bulge * std::sin(20 * z);
                 for (std::size_t c = 0; c < 3; ++c)
                     x[c] = r * (std::cos(a) * e1[c] - std::sin(a) * e2[c]) + z * axis[c];
             }},
            GetParam());
    };
    const auto radius = [&](const Vec3& x) { return std::hypot(dot(x, e1), dot(x, e2)); };
    const auto in_bore = [&](const Vec3& x) { return radius(x) < 0.12; };
    const Vec3 press = plus(times(3e4, e1), times(-4e4, e2)), force = plus(press, times(1e4, axis));
    const Mesh mesh = bore_of(2 * std::numbers::pi, 0);
    const auto bore = faces_where(mesh, in_bore);
    std::vector<double> nodal = zero(mesh), pressed = zero(mesh);
    EXPECT_EQ(add_bearing(mesh, bore, force, nodal), "");
    expect_near(resultant(nodal), force, 1e-7);
    EXPECT_EQ(add_bearing(mesh, bore, press, pressed), "");
    double radial = 0;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const Vec3 x = place_of(mesh, n), f = triple(pressed, n), out = minus(x, times(dot(x, axis), axis));
        radial += dot(f, unit(out));
        if (dot(out, press) < -0.02 * 5e4) {
            EXPECT_EQ(norm(f), 0);
        }
    }
    EXPECT_NEAR(radial / norm(press), 4 / std::numbers::pi, 0.01);

    const Mesh half = bore_of(std::numbers::pi, 0), barrel = bore_of(6, 0.02);
    std::vector<double> none = zero(half);
    const auto refusal = [&](const Mesh& of, const std::vector<ElementFace>& faces, const Vec3& f) {
        std::vector<double> untouched = zero(of);
        const std::string why = add_bearing(of, faces, f, untouched);
        EXPECT_EQ(untouched, zero(of));
        return why;
    };
    const auto half_bore = faces_where(half, in_bore);
    EXPECT_EQ(add_bearing(half, half_bore, times(-1, e2), none), "");
    EXPECT_EQ(refusal(half, half_bore, e2), "none of its faces looks against the force");
    EXPECT_EQ(refusal(half, half_bore, e1), "none of its faces looks against the force");
    EXPECT_EQ(refusal(barrel, faces_where(barrel, [&](const Vec3& x) { return radius(x) < 0.125; }), e1),
              "its faces are not on a cylinder");
    const Mesh flat = uneven(GetParam(), 2, false);
    EXPECT_EQ(refusal(flat, faces_where(flat, [](const Vec3& x) { return x[1] < 1e-9; }), {0, 1, 0}),
              "its faces are flat, not on a cylinder");
}

TEST_P(Faces, LoadsOfTheMassAndOfTemperatureHaveTheirIntegrals) {
    Mesh mesh = uneven(GetParam(), 3, false);
    const double volume = box[0] * box[1] * box[2];
    std::vector<double> heavy = zero(mesh), spun = zero(mesh);
    const std::vector<double> density{7800};
    add_body_force(
        mesh, density,
        [](const Vec3&) {
            return Vec3{0, 2, -9.81};
        },
        heavy);
    expect_near(resultant(heavy), Vec3{0, 2 * 7800 * volume, -9.81 * 7800 * volume}, 1e-9);
    // 300 rad/s about the line through (1, 0, 0) along y
    add_body_force(
        mesh, density,
        [](const Vec3& x) {
            return times(9e4, {x[0] - 1, 0, x[2]});
        },
        spun);
    const Vec3 pull = times(9e4 * 7800 * volume, {box[0] / 2 - 1, 0, box[2] / 2});
    expect_near(resultant(spun), pull, 1e-4);

    for (std::int32_t e = 0; e < mesh.element_num(); e += 2) mesh.p_ele_part_id[e] = 1;
    const ElementType& type = element_type(mesh.element_type);
    std::vector<double> strain(type.points * mesh.element_num(), 0.0);
    const FieldExpression temperature = field([](const double* x) { return 320 + 40 * x[0] - 30 * x[2]; });
    const std::vector<double> expansion{1.2e-5, 2.4e-5};
    add_thermal_strain(mesh, expansion, std::vector<char>{1, 0}, temperature, 300, 0, 2, strain);
    add_thermal_strain(mesh, expansion, std::vector<char>{0, 1}, temperature, 300, 0, 1, strain);
    double sum = 0;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        ElementPoints points;
        ASSERT_TRUE(evaluate_points(type, mesh, e, points));
        for (int p = 0; p < type.points; ++p) sum += points.weight[p] * strain[type.points * e + p];
    }
    EXPECT_NEAR(sum, 2.4e-5 * volume * (20 + 40 * box[0] / 2 - 30 * box[2] / 2), 1e-15);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Faces, ::testing::ValuesIn(testing::every_kind));

}  // namespace
}  // namespace kestralum
