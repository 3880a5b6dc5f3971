// What every element type must do: reproduce the fields of its order on distorted meshes, which makes it
// converge, have exactly six rigid modes, carry its mass.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "support/assembled.h"
#include "support/box_mesh.h"
#include "support/eigenvalues.h"
#include "support/tensors.h"

namespace kestralum {
namespace {

using testing::eigenvalues;
using testing::Grid;

const Material steel{.id = 0, .name = "STEEL", .density = 7800, .young = 2.06e11, .poisson = 0.3};
constexpr double box[3] = {0.3, 0.36, 0.42};

// A box of 3 × 3 × 3 cells whose nodes are moved about by up to a fifth of a cell, faces included
// (within their planes unless `everywhere`).
Grid distorted(bool everywhere = false) {
    return {{3, 3, 3}, {box[0], box[1], box[2]}, [everywhere](double* x) {
                const double X[3] = {x[0], x[1], x[2]};
                for (int c = 0; c < 3; ++c)
                    if (everywhere || (X[c] > 1e-9 && X[c] < box[c] - 1e-9))
                        x[c] += box[c] / 15 * std::sin(50 * X[0] + 31 * X[1] * (c + 1) + 23 * X[2] + c);
            }};
}

bool on_surface(const double* x) {
    bool on = false;
    for (int c = 0; c < 3; ++c) on |= x[c] < 1e-9 || x[c] > box[c] - 1e-9;
    return on;
}

// Curved ten-node tetrahedra: the mid-side nodes leave the middle of their edges, in the body or everywhere.
void bend_edges(Mesh& mesh, double amplitude, bool everywhere) {
    if (mesh.element_type != ElementKind::tetrahedron10) return;
    for (std::int32_t n = 64; n < mesh.node_num(); ++n) {
        double* x = &mesh.coordinates[3 * n];
        if (!everywhere && on_surface(x)) continue;
        for (int c = 0; c < 3; ++c) x[c] += amplitude * std::sin(3.7 * n + 2 * c);
    }
}

// f_rᵀ M f_c of the motions x, y, z and 1 along one axis.
std::array<std::array<double, 4>, 4> moments(const Mesh& mesh) {
    const ElementType& type = element_type(mesh.element_type);
    std::array<std::array<double, 4>, 4> out{};
    std::vector<double> me(type.nodes * type.nodes);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        ElementPoints points;
        EXPECT_TRUE(evaluate_points(type, mesh, e, points));
        type.mass(points.x.data(), me.data());
        const auto f = [&](int node, int r) { return r == 3 ? 1 : points.x[3 * node + r]; };
        for (int ij = 0; ij < type.nodes * type.nodes; ++ij)
            for (int rc = 0; rc < 16; ++rc)
                out[rc / 4][rc % 4] +=
                    steel.density * f(ij / type.nodes, rc / 4) * me[ij] * f(ij % type.nodes, rc % 4);
    }
    return out;
}

class Element : public ::testing::TestWithParam<testing::ElementForm> {
protected:
    const ElementKind kind = GetParam().kind;
    const HexahedronForm form = GetParam().form;
    SilentProgress silent;
};

// Without forces inside: u = G x + s ∇φ with φ = xyz + x³/3 - xy², ∇²φ = 0, so that u satisfies Navier's
// equations. The elements of first order reproduce the first part, those of second order both.
TEST_P(Element, ReproducesTheFieldsOfItsOrderOnADistortedMesh) {
    const Mesh mesh = testing::box_mesh(distorted(), kind);
    const testing::Tensor G{1.1e-4, -0.4e-4, 0.7e-4, 0.3e-4, -0.9e-4, 0.5e-4, -0.2e-4, 0.6e-4, 0.8e-4};
    const double s = kind == ElementKind::tetrahedron10 ? 1e-4 : 0;
    std::vector<double> u(mesh.dof_num()), nodal(5 * mesh.dof_num()), Ku(mesh.dof_num());
    std::vector<char> surface;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const auto [x, y, z] = triple(mesh.coordinates, n);
        testing::apply(G, mesh.node(n), &u[3 * n]);
        const Vec3 second{y * z + x * x - y * y, x * z - 2 * x * y, x * y};
        for (int c = 0; c < 3; ++c) u[3 * n + c] += s * second[c] + 1e-5 * (c + 1);
        surface.push_back(on_surface(mesh.node(n)));
    }
    EXPECT_GE(std::count(surface.begin(), surface.end(), 0), 8);
    const Elasticity elasticity = build_elasticity(std::span(&steel, 1), silent);
    const std::vector<Part> parts(1);
    PointResults points;
    point_stresses(mesh, parts, elasticity, u, 2, points, silent, {.form = form});
    mean_stress_strain(mesh, elements_of_nodes(mesh), points, {}, 2, nodal, silent);
    const double E = steel.young, nu = steel.poisson, mu = E / (2 * (1 + nu));
    const double pressure = E * nu / ((1 + nu) * (1 - 2 * nu)) * (G[0] + G[4] + G[8]);
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const auto [x, y, z] = triple(mesh.coordinates, n);
        const double strain[6] = {
            G[0] + 2 * s * x,        G[4] - 2 * s * x,       G[8], G[1] + G[3] + 2 * s * (z - 2 * y),
            G[5] + G[7] + 2 * s * x, G[2] + G[6] + 2 * s * y};
        for (int c = 0; c < 6; ++c) {
            const double* at = &nodal[c / 3 * mesh.dof_num() + 3 * n + c % 3];
            EXPECT_NEAR(at[2 * mesh.dof_num()], strain[c], 1e-10 * 1e-4);
            EXPECT_NEAR(at[0], c < 3 ? pressure + 2 * mu * strain[c] : mu * strain[c], 1e-10 * 1e-4 * E);
        }
    }
    // in balance inside, and the points' stresses carry what the stiffness says: ∫ Bᵀ σ dV = K u
    const SparseKM km = testing::assemble(mesh, steel, elasticity, form);
    multiply(km, km.K_value, u, Ku);
    const auto reaction = internal_forces(mesh, points, surface, form);
    const double largest = *std::max_element(Ku.begin(), Ku.end());
    EXPECT_GT(largest, 1e4);
    for (std::size_t d = 0; d < Ku.size(); ++d)
        EXPECT_NEAR(Ku[d], surface[d / 3] ? reaction[d] : 0, 1e-10 * largest);
}

// Rigid motions being without strain in the patch test, the zeros are theirs.
TEST_P(Element, StiffnessHasSixZeroModesAndTheMassIsPositive) {
    Mesh mesh = testing::box_mesh(distorted(true), kind);
    bend_edges(mesh, 0.003, true);
    const ElementType& type = element_type(kind);
    const Elasticity elasticity = build_elasticity(std::span(&steel, 1), silent);
    const int size = 3 * type.nodes;
    std::vector<double> ke(size * size), me(type.nodes * type.nodes);
    for (std::int32_t e : {0, 5, mesh.element_num() - 1}) {
        ASSERT_TRUE(testing::element_matrices(mesh, steel, elasticity, form)(e, ke.data(), me.data()));
        const auto values = eigenvalues(ke.data(), size), masses = eigenvalues(me.data(), type.nodes);
        for (int k = 0; k < 6; ++k) EXPECT_LT(std::abs(values[k]), 1e-12 * values[size - 1]) << "mode " << k;
        EXPECT_GT(values[6], 1e-4 * values[size - 1]) << "a seventh mode without energy";
        EXPECT_GT(masses[0], 1e-3 * masses[type.nodes - 1]);
    }
}

// Any displacements and initial strains: the forces of the stresses are those of the stiffness less those of
// the initial strains, in which the internal strains have gone along.
TEST_P(Element, StressesOfInitialStrainsCarryTheirForces) {
    const Mesh mesh = testing::box_mesh(distorted(true), kind);
    const ElementType& type = element_type(kind);
    const IsotropicModuli D = moduli(build_elasticity(std::span(&steel, 1), silent), 0);
    const int size = 3 * type.nodes;
    ElementPoints points;
    ASSERT_TRUE(evaluate_points(type, mesh, 4, points));
    std::mt19937 random(3);
    std::uniform_real_distribution<double> value(-1e-3, 1e-3);
    std::vector<double> u(size), initial(6 * type.points), strain(initial), stress(initial), fe(size),
        ke(size * size);
    for (double& v : u) v = value(random) * 0.1;
    for (double& v : initial) v = value(random);
    element_stresses(type, points, D, form, u.data(), initial.data(), strain.data(), stress.data());
    balancing_stresses(type, points, form, stress.data(), stress.data());
    initial_strain_forces(type, points, D, form, initial.data(), fe.data());
    element_stiffness(type, points, D, form, ke.data());
    for (int d = 0; d < size; ++d) {
        double left = -fe[d], right = 0;
        for (int c = 0; c < size; ++c) left += ke[size * d + c] * u[c];
        for (int p = 0; p < type.points; ++p)
            for (int c = 0; c < 3; ++c)
                right += points.weight[p] * testing::full(&stress[6 * p])[3 * (d % 3) + c] *
                         points.dN[3 * (type.nodes * p + d / 3) + c];
        EXPECT_NEAR(left, right, 1e-11 * std::abs(fe[0])) << d;
    }
    // a uniform stress on the gradient G does V tr(G σ Gᵀ)
    for (int p = 0; p < type.points; ++p) std::copy(&initial[0], &initial[6], &stress[6 * p]);
    const testing::Tensor G{1.1, -0.4, 0.7, 0.3, -0.9, 0.5, -0.2, 0.6, 0.8};
    const testing::Tensor GsG = multiply3(multiply3(G, testing::full(stress.data())), transposed(G));
    geometric_stiffness(type, points, stress.data(), ke.data());
    double energy = 0;
    for (int n = 0; n < type.nodes; ++n) testing::apply(G, &points.x[3 * n], &u[3 * n]);
    for (int k = 0; k < size * size; ++k) energy += u[k / size] * ke[k] * u[k % size];
    EXPECT_NEAR(energy, element_volume(type, points) * (GsG[0] + GsG[4] + GsG[8]), 1e-15);
}

// A hexahedron whose nodes are numbered from another corner, its directions in another order, is the same
// element.
TEST_P(Element, NothingDependsOnTheNumberingOfTheNodes) {
    if (kind != ElementKind::hexahedron) return;
    Mesh mesh = testing::box_mesh(distorted(true), kind);
    const Elasticity elasticity = build_elasticity(std::span(&steel, 1), silent);
    constexpr int other[8] = {5, 6, 2, 1,
                              4, 7, 3, 0};  // a turn by 120 degrees about a diagonal, then a half turn
    double ke[24 * 24], turned[24 * 24], me[64];
    ASSERT_TRUE(testing::element_matrices(mesh, steel, elasticity, form)(7, ke, me));
    const std::vector<std::int32_t> nodes(mesh.element(7).begin(), mesh.element(7).end());
    for (int i = 0; i < 8; ++i) mesh.connectivity[8 * 7 + i] = nodes[other[i]];
    ASSERT_TRUE(testing::element_matrices(mesh, steel, elasticity, form)(7, turned, me));
    for (int r = 0; r < 24; ++r)
        for (int c = 0; c < 24; ++c)
            EXPECT_NEAR(turned[24 * r + c], ke[24 * (3 * other[r / 3] + r % 3) + 3 * other[c / 3] + c % 3],
                        1e-12 * ke[0]);
}

TEST_P(Element, CarriesMassFirstMomentAndInertia) {
    // a box aside: fᵀ M g = ρ ∫ f g dV
    const Grid grid{{2, 1, 2}, {0.4, 0.3, 0.5}, [](double* x) { x[2] += 0.7; }};
    const auto& size = grid.size;
    const double mean[3] = {size[0] / 2, size[1] / 2, size[2] / 2 + 0.7};
    const double mass = steel.density * size[0] * size[1] * size[2];
    const auto linear = moments(testing::box_mesh(grid, kind));
    EXPECT_NEAR(linear[3][3], mass, 1e-12 * mass);
    for (int r = 0; r < 3; ++r) {
        EXPECT_NEAR(linear[r][3], mass * mean[r], 1e-12 * mass);
        for (int c = 0; c < 3; ++c) {
            const double own = r == c ? size[r] * size[r] / 12 : 0;
            EXPECT_NEAR(linear[r][c], mass * (mean[r] * mean[c] + own), 1e-12 * mass);
        }
    }
    // inside a box with plane faces elements may be bent and skewed: masses and first moments still add up
    // to the box's, which they do only if each is exact
    Mesh mesh = testing::box_mesh(distorted(), kind);
    bend_edges(mesh, 0.004, false);
    const auto bent = moments(mesh);
    const double total = steel.density * box[0] * box[1] * box[2];
    EXPECT_NEAR(bent[3][3], total, 1e-12 * total);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(bent[c][3], total * box[c] / 2, 1e-12 * total);
}

TEST_P(Element, AnInvertedOrFlatElementIsTold) {
    for (double scale : {1.0, -1.0, 0.0}) {
        Mesh mesh = testing::box_mesh({{1, 1, 1}, {1, 1, 1}}, kind);
        for (std::size_t d = 2; d < mesh.coordinates.size(); d += 3) mesh.coordinates[d] *= scale;
        ElementPoints points;
        EXPECT_EQ(evaluate_points(element_type(kind), mesh, 0, points), scale > 0) << scale;
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, Element, ::testing::ValuesIn(testing::every_form));

TEST(Stress, MisesAndLargestPrincipal) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> value(-3, 3);
    for (int k = 0; k < 200; ++k) {
        double s[6];
        for (double& v : s) v = k < 3 ? (k == 0 ? 0 : 2.5) * (&v < s + 3) : value(random);
        const auto p = eigenvalues(testing::full(s).data(), 3);
        const double a = p[0] - p[1], b = p[1] - p[2], c = p[2] - p[0];
        EXPECT_NEAR(largest_principal(s), p[2], 1e-12 * 10);
        EXPECT_NEAR(mises(s), std::sqrt(0.5 * (a * a + b * b + c * c)), 1e-12 * 10);
    }
}

TEST(Stress, ANodeOfTwoPartsKeepsThePartWithTheLargerMisesStress) {
    SilentProgress silent;
    Mesh mesh = testing::hexa_box({{2, 1, 1}, {2, 1, 1}});
    mesh.p_ele_part_id = {0, 1};
    PointResults points;
    points.stress.assign(2 * 8 * 6, 0.0);
    points.strain = points.stress;
    points.volume = {1, 1};
    for (int p = 0; p < 8; ++p) {
        points.stress[6 * p] = 10;             // part 0: σxx
        points.stress[6 * (8 + p) + 1] = -25;  // part 1: σyy
    }
    std::vector<double> nodal(5 * mesh.dof_num(), 0.0);
    mean_stress_strain(mesh, elements_of_nodes(mesh), points, {}, 1, nodal, silent);
    for (std::int32_t d = 0; d < mesh.dof_num(); d += 3) {
        const bool first_only = mesh.coordinates[d] < 0.5;
        EXPECT_NEAR(nodal[d], first_only ? 10 : 0, 1e-12);
        EXPECT_NEAR(nodal[d + 1], first_only ? 0 : -25, 1e-12);
        EXPECT_NEAR(nodal[4 * mesh.dof_num() + d], first_only ? 10 : 25, 1e-12);
        EXPECT_NEAR(nodal[4 * mesh.dof_num() + d + 2], first_only ? 10 : 0, 1e-12);
    }
}

}  // namespace
}  // namespace kestralum
