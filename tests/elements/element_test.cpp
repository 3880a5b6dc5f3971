// What every element type must do: reproduce constant strain on distorted meshes, have exactly six
// rigid modes, carry its mass, converge at its order, balance its loads.
#include <gtest/gtest.h>
#include <jama/jama_eig.h>

#include <cmath>
#include <random>

#include "model/console.h"
#include "support/assembled.h"
#include "support/box_mesh.h"
#include "support/temp_folder.h"

namespace kestralum {
namespace {

using testing::Grid;
using testing::TempFolder;

const Material steel{.id = 0, .name = "STEEL", .density = 7800, .young = 2.06e11, .poisson = 0.3};
constexpr ElementKind kinds[] = {ElementKind::hexahedron, ElementKind::tetrahedron4, ElementKind::tetrahedron10};

// A box of 3 × 3 × 3 cells whose nodes are moved about by up to a fifth of a cell, faces included
// (within their planes unless `everywhere`).
Grid distorted(bool everywhere = false) {
    return {{3, 3, 3}, {0.3, 0.36, 0.42}, [everywhere](double* x) {
                const double size[3] = {0.3, 0.36, 0.42};
                const double before[3] = {x[0], x[1], x[2]};
                for (int c = 0; c < 3; ++c)
                    if (everywhere || (before[c] > 1e-9 && before[c] < size[c] - 1e-9))
                        x[c] += size[c] / 15 * std::sin(50 * before[0] + 31 * before[1] * (c + 1) + 23 * before[2] + c);
            }};
}

bool on_surface(const double* x) {
    const double size[3] = {0.3, 0.36, 0.42};
    for (int c = 0; c < 3; ++c)
        if (x[c] < 1e-9 || x[c] > size[c] - 1e-9) return true;
    return false;
}

// Moves the mid-side nodes off the edge midpoints: curved ten-node tetrahedra.
void bend_edges(Mesh& mesh, double amplitude) {
    const auto corners = static_cast<std::size_t>(*std::max_element(mesh.connectivity.begin(), mesh.connectivity.begin() + 4));
    for (std::size_t n = corners; n < static_cast<std::size_t>(mesh.node_num()); ++n)
        for (std::size_t c = 0; c < 3; ++c)
            mesh.coordinates[3 * n + c] += amplitude * std::sin(3.7 * static_cast<double>(n) + 2 * static_cast<double>(c));
}

class Element : public ::testing::TestWithParam<ElementKind> {
protected:
    console::Capture quiet_;
    TempFolder folder_;
};

TEST_P(Element, ReproducesConstantStrainOnADistortedMesh) {
    const Mesh mesh = testing::box_mesh(distorted(), GetParam());
    const double G[3][3] = {{1.1e-4, -0.4e-4, 0.7e-4}, {0.3e-4, -0.9e-4, 0.5e-4}, {-0.2e-4, 0.6e-4, 0.8e-4}};
    auto field = [&](const double* x, double* u) {
        for (int r = 0; r < 3; ++r) u[r] = 1e-5 * (r + 1) + G[r][0] * x[0] + G[r][1] * x[1] + G[r][2] * x[2];
    };
    const auto solution = testing::solve({mesh, steel, on_surface, field});
    double exact[3];
    std::int32_t inside = 0;
    for (std::size_t n = 0; n < static_cast<std::size_t>(mesh.node_num()); ++n) {
        field(&mesh.coordinates[3 * n], exact);
        inside += !on_surface(&mesh.coordinates[3 * n]);
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(solution.u[3 * n + c], exact[c], 1e-10 * 1e-4);
    }
    EXPECT_GE(inside, 8);
    const double strain[6] = {G[0][0], G[1][1], G[2][2], G[0][1] + G[1][0], G[1][2] + G[2][1], G[2][0] + G[0][2]};
    const double E = steel.young, nu = steel.poisson, lambda = E * nu / ((1 + nu) * (1 - 2 * nu)), mu = E / (2 * (1 + nu));
    const double trace = strain[0] + strain[1] + strain[2];
    for (std::size_t k = 0; k < solution.points.strain.size(); ++k) {
        const std::size_t c = k % 6;
        EXPECT_NEAR(solution.points.strain[k], strain[c], 1e-10 * 1e-4);
        const double stress = c < 3 ? lambda * trace + 2 * mu * strain[c] : mu * strain[c];
        EXPECT_NEAR(solution.points.stress[k], stress, 1e-10 * 1e-4 * E);
    }
    // nodal averages of a constant field are the field, by the element's extrapolation
    std::vector<double> nodal(5 * static_cast<std::size_t>(mesh.dof_num));
    mean_stress_strain(mesh, elements_of_nodes(mesh), solution.points, {}, 2, nodal);
    for (std::size_t n = 0; n < static_cast<std::size_t>(mesh.node_num()); ++n)
        for (std::size_t c = 0; c < 6; ++c)
            EXPECT_NEAR(nodal[(2 + c / 3) * static_cast<std::size_t>(mesh.dof_num) + 3 * n + c % 3], strain[c], 1e-10 * 1e-4);
}

TEST_P(Element, StiffnessIsBtDBAndHasExactlySixRigidModes) {
    Mesh mesh = testing::box_mesh(distorted(true), GetParam());
    if (GetParam() == ElementKind::tetrahedron10) bend_edges(mesh, 0.003);
    const ElementType& type = element_type(GetParam());
    const Elasticity elasticity = build_elasticity(std::span(&steel, 1));
    const int size = 3 * type.nodes;
    std::vector<double> ke(static_cast<std::size_t>(size * size)), B(static_cast<std::size_t>(6 * size));
    for (std::int32_t e : {0, 5, mesh.element_num() - 1}) {
        ElementPoints points;
        ASSERT_TRUE(evaluate_points(type, mesh, e, points));
        element_stiffness(type, points, moduli(elasticity, 0), ke.data());
        double largest = 0;
        for (double k : ke) largest = std::max(largest, std::abs(k));
        std::vector<double> direct(ke.size(), 0.0);
        for (int p = 0; p < type.points; ++p) {
            strain_displacement(type.nodes, points.dN.data() + 3 * type.nodes * p, B.data());
            for (int r = 0; r < size; ++r)
                for (int c = 0; c < size; ++c)
                    for (int i = 0; i < 6; ++i)
                        for (int j = 0; j < 6; ++j)
                            direct[static_cast<std::size_t>(size * r + c)] += points.weight[static_cast<std::size_t>(p)] * B[static_cast<std::size_t>(size * i + r)] *
                                                                              elasticity.D[i][j][0] * B[static_cast<std::size_t>(size * j + c)];
        }
        TNT::Array2D<double> K(size, size);
        for (int r = 0; r < size; ++r)
            for (int c = 0; c < size; ++c) {
                const double k = ke[static_cast<std::size_t>(size * r + c)];
                EXPECT_NEAR(k, direct[static_cast<std::size_t>(size * r + c)], 1e-13 * largest);
                K[r][c] = 0.5 * (k + ke[static_cast<std::size_t>(size * c + r)]);
            }
        for (int mode = 0; mode < 6; ++mode) {
            std::vector<double> rigid(static_cast<std::size_t>(size), 0.0);
            for (int n = 0; n < type.nodes; ++n) {
                const double* x = &points.x[static_cast<std::size_t>(3 * n)];
                double* u = &rigid[static_cast<std::size_t>(3 * n)];
                if (mode < 3) u[mode] = 1;
                else {
                    u[(mode + 1) % 3] = -x[(mode + 2) % 3];
                    u[(mode + 2) % 3] = x[(mode + 1) % 3];
                }
            }
            for (int r = 0; r < size; ++r) {
                double sum = 0;
                for (int c = 0; c < size; ++c) sum += ke[static_cast<std::size_t>(size * r + c)] * rigid[static_cast<std::size_t>(c)];
                EXPECT_NEAR(sum, 0, 1e-13 * largest);
            }
        }
        JAMA::Eigenvalue<double> eigen(K);
        TNT::Array1D<double> values;
        eigen.getRealEigenvalues(values);
        for (int k = 0; k < 6; ++k) EXPECT_LT(std::abs(values[k]), 1e-12 * largest) << "mode " << k;
        EXPECT_GT(values[6], 1e-4 * largest) << "a seventh mode without energy";
    }
}

TEST_P(Element, CarriesMassFirstMomentAndInertia) {
    // an affine image of the box: cells are parallelepipeds, tetrahedra stay straight
    const Grid grid{{2, 1, 2}, {0.4, 0.3, 0.5}, [](double* x) {
                        const double y[3] = {x[0] + 0.3 * x[1], x[1] - 0.2 * x[2], x[2] + 0.1 * x[0] + 0.7};
                        std::copy(y, y + 3, x);
                    }};
    const Mesh mesh = testing::box_mesh(grid, GetParam());
    const SparseKM km = testing::assemble(mesh, steel, build_elasticity(std::span(&steel, 1)));
    const auto dofs = static_cast<std::size_t>(mesh.dof_num);
    // one direction of motion: field f(x) in x; fᵀ M g = ρ ∫ f g dV
    auto product = [&](const std::function<double(const double*)>& f, const std::function<double(const double*)>& g) {
        std::vector<double> a(dofs, 0.0), b(dofs, 0.0), Mb(dofs);
        for (std::size_t n = 0; n < dofs / 3; ++n) {
            a[3 * n] = f(&mesh.coordinates[3 * n]);
            b[3 * n] = g(&mesh.coordinates[3 * n]);
        }
        multiply(km, km.M_value, b, Mb);
        double sum = 0;
        for (std::size_t k = 0; k < dofs; ++k) sum += a[k] * Mb[k];
        return sum;
    };
    // exact: box coordinates s in [0, 0.4] × [0, 0.3] × [0, 0.5], x = A s + t
    const double A[3][3] = {{1, 0.3, 0}, {0, 1, -0.2}, {0.1, 0, 1}}, t[3] = {0, 0, 0.7}, size[3] = {0.4, 0.3, 0.5};
    const double det = 1 * (1 * 1 - (-0.2) * 0) - 0.3 * (0 * 1 - (-0.2) * 0.1);
    const double mass = steel.density * det * size[0] * size[1] * size[2];
    double mean[3];
    for (int r = 0; r < 3; ++r) mean[r] = t[r] + A[r][0] * size[0] / 2 + A[r][1] * size[1] / 2 + A[r][2] * size[2] / 2;
    auto one = [](const double*) { return 1.0; };
    EXPECT_NEAR(product(one, one), mass, 1e-12 * mass);
    for (int r = 0; r < 3; ++r) {
        auto xr = [r](const double* x) { return x[r]; };
        EXPECT_NEAR(product(xr, one), mass * mean[r], 1e-12 * mass);
        for (int c = 0; c < 3; ++c) {
            double covariance = 0;
            for (int k = 0; k < 3; ++k) covariance += A[r][k] * A[c][k] * size[k] * size[k] / 12;
            EXPECT_NEAR(product(xr, [c](const double* x) { return x[c]; }), mass * (covariance + mean[r] * mean[c]), 1e-12 * mass);
        }
    }
}

// Inside a box with plane faces elements may be bent and skewed: their masses and first moments still
// add up to the box's, which they do only if each is exact.
TEST_P(Element, ADistortedBoxKeepsTheVolumeAndFirstMomentOfTheBox) {
    Mesh mesh = testing::box_mesh(distorted(), GetParam());  // outer faces stay plane
    if (GetParam() == ElementKind::tetrahedron10)
        for (std::size_t n = 0; n < static_cast<std::size_t>(mesh.node_num()); ++n) {  // bend inner edges only
            double* x = &mesh.coordinates[3 * n];
            if (n >= 64 && !on_surface(x)) x[n % 3] += 0.004 * std::sin(static_cast<double>(n));
        }
    const SparseKM km = testing::assemble(mesh, steel, build_elasticity(std::span(&steel, 1)));
    const auto dofs = static_cast<std::size_t>(mesh.dof_num);
    const double mass = steel.density * 0.3 * 0.36 * 0.42, centre[3] = {0.15, 0.18, 0.21};
    std::vector<double> one(dofs, 0.0), M1(dofs);
    for (std::size_t n = 0; n < dofs / 3; ++n) one[3 * n] = 1;
    multiply(km, km.M_value, one, M1);
    double total = 0, moment[3] = {};
    for (std::size_t n = 0; n < dofs / 3; ++n) {
        total += M1[3 * n];
        for (std::size_t c = 0; c < 3; ++c) moment[c] += M1[3 * n] * mesh.coordinates[3 * n + c];
    }
    EXPECT_NEAR(total, mass, 1e-12 * mass);
    for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(moment[c], mass * centre[c], 1e-12 * mass);
}

TEST_P(Element, ConsistentMassIsPositiveDefinite) {
    Mesh mesh = testing::box_mesh(distorted(true), GetParam());
    if (GetParam() == ElementKind::tetrahedron10) bend_edges(mesh, 0.003);
    const ElementType& type = element_type(GetParam());
    ElementPoints points;
    TNT::Array2D<double> M(type.nodes, type.nodes);
    std::vector<double> me(static_cast<std::size_t>(type.nodes * type.nodes));
    for (std::int32_t e = 0; e < mesh.element_num(); e += 7) {
        ASSERT_TRUE(evaluate_points(type, mesh, e, points));
        type.mass(points.x.data(), me.data());
        for (int r = 0; r < type.nodes; ++r)
            for (int c = 0; c < type.nodes; ++c) M[r][c] = 0.5 * (me[static_cast<std::size_t>(type.nodes * r + c)] + me[static_cast<std::size_t>(type.nodes * c + r)]);
        JAMA::Eigenvalue<double> eigen(M);
        TNT::Array1D<double> values;
        eigen.getRealEigenvalues(values);
        EXPECT_GT(values[0], 1e-3 * values[type.nodes - 1]);
    }
}

// Manufactured solution without body force: u = ∇φ with ∇²φ = 0 satisfies Navier's equations.
// φ = sin(ax) sin(by) sinh(cz), c² = a² + b².
TEST_P(Element, ConvergesAtItsOrder) {
    constexpr double a = 2.1, b = 1.7;
    const double c = std::sqrt(a * a + b * b);
    auto field = [&](const double* x, double* u) {
        u[0] = a * std::cos(a * x[0]) * std::sin(b * x[1]) * std::sinh(c * x[2]);
        u[1] = b * std::sin(a * x[0]) * std::cos(b * x[1]) * std::sinh(c * x[2]);
        u[2] = c * std::sin(a * x[0]) * std::sin(b * x[1]) * std::cosh(c * x[2]);
    };
    auto exact_xx = [&](const double* x) { return -a * a * std::sin(a * x[0]) * std::sin(b * x[1]) * std::sinh(c * x[2]); };
    auto errors = [&](int cells) {
        const Mesh mesh = testing::box_mesh({{cells, cells, cells}, {1, 1, 1}}, GetParam());
        auto outside = [](const double* x) {
            for (int k = 0; k < 3; ++k)
                if (x[k] < 1e-9 || x[k] > 1 - 1e-9) return true;
            return false;
        };
        const auto solution = testing::solve({mesh, steel, outside, field});
        double displacement = 0, inside = 0, strain = 0, volume = 0, exact[3];
        for (std::size_t n = 0; n < static_cast<std::size_t>(mesh.node_num()); ++n) {
            if (outside(&mesh.coordinates[3 * n])) continue;  // prescribed: without error
            field(&mesh.coordinates[3 * n], exact);
            for (std::size_t k = 0; k < 3; ++k) displacement += std::pow(solution.u[3 * n + k] - exact[k], 2);
            ++inside;
        }
        // strains at the corners of each element: at its centre or points they would be flattered
        const ElementType& type = element_type(GetParam());
        for (std::int32_t e = 0; e < mesh.element_num(); ++e)
            for (int k = 0; k < type.nodes; ++k) {
                double value = 0;
                for (int p = 0; p < type.points; ++p)
                    value += type.extrapolation[k * type.points + p] * solution.points.strain[6 * static_cast<std::size_t>(e * type.points + p)];
                const auto n = static_cast<std::size_t>(mesh.connectivity[static_cast<std::size_t>(e * type.nodes + k)] - 1);
                const double weight = solution.points.volume[static_cast<std::size_t>(e)];
                strain += weight * std::pow(value - exact_xx(&mesh.coordinates[3 * n]), 2);
                volume += weight;
            }
        return std::pair{std::sqrt(displacement / inside), std::sqrt(strain / volume)};
    };
    const bool quadratic = GetParam() == ElementKind::tetrahedron10;
    const auto [u1, s1] = errors(quadratic ? 3 : 8);
    const auto [u2, s2] = errors(quadratic ? 6 : 16);
    const double displacement_order = std::log2(u1 / u2), strain_order = std::log2(s1 / s2);
    RecordProperty("displacement_order", std::to_string(displacement_order));
    RecordProperty("strain_order", std::to_string(strain_order));
    std::printf("    observed order, %s: displacements %.2f, strains %.2f\n", element_type(GetParam()).name, displacement_order, strain_order);
    EXPECT_GT(displacement_order, quadratic ? 2.9 : 1.9);
    EXPECT_GT(strain_order, quadratic ? 1.85 : 0.9);
}

TEST_P(Element, ABarInTensionStretchesByFLOverEA) {
    const Material straight{.id = 0, .name = "NU0", .density = 1, .young = 7e10, .poisson = 0};
    const Mesh mesh = testing::box_mesh({{2, 3, 8}, {0.02, 0.03, 0.5}}, GetParam());
    const double traction[3] = {0, 0, 5e6};
    auto at_end = [](const double* x) { return x[2] > 0.5 - 1e-9; };
    const auto solution = testing::solve({mesh, straight, [](const double* x) { return x[2] < 1e-9; },
                                          [](const double*, double* u) { u[0] = u[1] = u[2] = 0; },
                                          testing::consistent_forces(mesh, traction, at_end)});
    for (std::size_t n = 0; n < static_cast<std::size_t>(mesh.node_num()); ++n) {
        const double exact = 5e6 / 7e10 * mesh.coordinates[3 * n + 2];  // F L / E A
        EXPECT_NEAR(solution.u[3 * n + 2], exact, 1e-9 * 5e6 / 7e10 * 0.5);
    }
    // internal forces at the clamp balance the load; a second route: K u there
    std::vector<char> clamped(static_cast<std::size_t>(mesh.node_num()), 0);
    for (std::size_t n = 0; n < clamped.size(); ++n) clamped[n] = mesh.coordinates[3 * n + 2] < 1e-9;
    const auto reaction = internal_forces(mesh, solution.points, clamped);
    const SparseKM km = testing::assemble(mesh, straight, solution.elasticity);
    std::vector<double> Ku(reaction.size());
    multiply(km, km.K_value, solution.u, Ku);
    double sum = 0;
    for (std::size_t n = 0; n < clamped.size(); ++n) {
        sum += reaction[3 * n + 2];
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(reaction[3 * n + c], clamped[n] ? Ku[3 * n + c] : 0.0, 1e-8 * 3000);
    }
    EXPECT_NEAR(sum, -5e6 * 0.02 * 0.03, 1e-9 * 3000);
}

TEST_P(Element, AnInvertedOrFlatElementIsTold) {
    Mesh mesh = testing::box_mesh({{1, 1, 1}, {1, 1, 1}}, GetParam());
    const ElementType& type = element_type(GetParam());
    ElementPoints points;
    EXPECT_TRUE(evaluate_points(type, mesh, 0, points));
    for (double scale : {-1.0, 0.0}) {
        Mesh damaged = mesh;
        for (std::size_t n = 0; n < static_cast<std::size_t>(mesh.node_num()); ++n) damaged.coordinates[3 * n + 2] *= scale;
        EXPECT_FALSE(evaluate_points(type, damaged, 0, points)) << "z scaled by " << scale;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Element, ::testing::ValuesIn(kinds), [](const auto& kind) {
    return std::string(kind.param == ElementKind::hexahedron ? "hexahedron" : kind.param == ElementKind::tetrahedron4 ? "tetrahedron4" : "tetrahedron10");
});

TEST(Stress, MisesAndLargestPrincipal) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> value(-3, 3);
    for (int k = 0; k < 200; ++k) {
        double s[6];
        for (double& v : s) v = k < 3 ? (k == 0 ? 0 : 2.5) * (&v < s + 3) : value(random);
        TNT::Array2D<double> S(3, 3);
        const int at[3][3] = {{0, 3, 5}, {3, 1, 4}, {5, 4, 2}};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) S[r][c] = s[at[r][c]];
        JAMA::Eigenvalue<double> eigen(S);
        TNT::Array1D<double> p;
        eigen.getRealEigenvalues(p);
        EXPECT_NEAR(largest_principal(s), p[2], 1e-12 * 10);
        EXPECT_NEAR(mises(s), std::sqrt(0.5 * (std::pow(p[0] - p[1], 2) + std::pow(p[1] - p[2], 2) + std::pow(p[2] - p[0], 2))), 1e-12 * 10);
    }
}

TEST(Stress, ANodeOfTwoPartsKeepsThePartWithTheLargerMisesStress) {
    const console::Capture quiet;
    Mesh mesh = testing::hexa_box({{2, 1, 1}, {2, 1, 1}});
    mesh.p_ele_part_id = {0, 1};
    PointResults points;
    points.stress.assign(2 * 8 * 6, 0.0);
    points.strain.assign(2 * 8 * 6, 0.0);
    points.volume = {1, 1};
    for (std::size_t p = 0; p < 8; ++p) {
        points.stress[6 * p] = 10;              // part 0: σxx
        points.stress[6 * (8 + p) + 1] = -25;   // part 1: σyy
    }
    std::vector<double> nodal(5 * static_cast<std::size_t>(mesh.dof_num), 0.0);
    mean_stress_strain(mesh, elements_of_nodes(mesh), points, {}, 1, nodal);
    const auto dofs = static_cast<std::size_t>(mesh.dof_num);
    for (std::size_t n = 0; n < dofs / 3; ++n) {
        const bool first_only = mesh.coordinates[3 * n] < 0.5;
        EXPECT_NEAR(nodal[3 * n], first_only ? 10 : 0, 1e-12);
        EXPECT_NEAR(nodal[3 * n + 1], first_only ? 0 : -25, 1e-12);
        EXPECT_NEAR(nodal[4 * dofs + 3 * n], first_only ? 10 : 25, 1e-12);
        EXPECT_NEAR(nodal[4 * dofs + 3 * n + 2], first_only ? 10 : 0, 1e-12);
    }
}

}  // namespace
}  // namespace kestralum
