// What every element type must do: reproduce constant strain on distorted meshes, have exactly six
// rigid modes, carry its mass, converge at its order, balance its loads.
#include <gtest/gtest.h>
#include <jama/jama_eig.h>

#include <cmath>
#include <numeric>
#include <random>

#include "support/assembled.h"
#include "support/box_mesh.h"
#include "support/temp_folder.h"
#include "support/tensors.h"

namespace kestralum {
namespace {

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

TNT::Array1D<double> eigenvalues(const double* matrix, int n) {
    TNT::Array2D<double> symmetric(n, n);
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) symmetric[r][c] = 0.5 * (matrix[n * r + c] + matrix[n * c + r]);
    JAMA::Eigenvalue<double> eigen(symmetric);
    TNT::Array1D<double> values;
    eigen.getRealEigenvalues(values);
    return values;
}

// f_rᵀ M f_c of the motions x, y, z and 1 along one axis.
std::array<std::array<double, 4>, 4> moments(const Mesh& mesh) {
    SilentProgress silent;
    const SparseKM km = testing::assemble(mesh, steel, build_elasticity(std::span(&steel, 1), silent));
    std::array<std::vector<double>, 4> field;
    for (int r = 0; r < 4; ++r) {
        field[r].assign(mesh.dof_num(), 0.0);
        for (std::int32_t d = 0; d < mesh.dof_num(); d += 3)
            field[r][d] = r == 3 ? 1 : mesh.coordinates[d + r];
    }
    std::array<std::array<double, 4>, 4> out;
    std::vector<double> Mf(mesh.dof_num());
    for (int c = 0; c < 4; ++c) {
        multiply(km, km.M_value, field[c], Mf);
        for (int r = 0; r < 4; ++r)
            out[r][c] = std::inner_product(Mf.begin(), Mf.end(), field[r].begin(), 0.0);
    }
    return out;
}

class Element : public ::testing::TestWithParam<ElementKind> {
protected:
    SilentProgress silent;
    testing::TempFolder folder_;
};

TEST_P(Element, ReproducesConstantStrainOnADistortedMesh) {
    const Mesh mesh = testing::box_mesh(distorted(), GetParam());
    const testing::Tensor G{1.1e-4, -0.4e-4, 0.7e-4, 0.3e-4, -0.9e-4, 0.5e-4, -0.2e-4, 0.6e-4, 0.8e-4};
    auto field = [&](const double* x, double* u) {
        testing::apply(G, x, u);
        for (int r = 0; r < 3; ++r) u[r] += 1e-5 * (r + 1);
    };
    const auto solution = testing::solve({mesh, steel, on_surface, field}, folder_.file("log"));
    std::vector<char> surface;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        double exact[3];
        field(&mesh.coordinates[3 * n], exact);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(solution.u[3 * n + c], exact[c], 1e-10 * 1e-4);
        surface.push_back(on_surface(&mesh.coordinates[3 * n]));
    }
    EXPECT_GE(std::count(surface.begin(), surface.end(), 0), 8);
    const double strain[6] = {G[0], G[4], G[8], G[1] + G[3], G[5] + G[7], G[2] + G[6]};
    const double E = steel.young, nu = steel.poisson, mu = E / (2 * (1 + nu));
    const double pressure = E * nu / ((1 + nu) * (1 - 2 * nu)) * (strain[0] + strain[1] + strain[2]);
    for (std::size_t k = 0; k < solution.points.strain.size(); ++k) {
        const double* e = &strain[k % 6];
        EXPECT_NEAR(solution.points.strain[k], *e, 1e-10 * 1e-4);
        EXPECT_NEAR(solution.points.stress[k], k % 6 < 3 ? pressure + 2 * mu * *e : mu * *e,
                    1e-10 * 1e-4 * E);
    }
    // nodal averages of a constant field are the field, by the element's extrapolation
    std::vector<double> nodal(5 * mesh.dof_num()), Ku(mesh.dof_num());
    mean_stress_strain(mesh, elements_of_nodes(mesh), solution.points, {}, 2, nodal, silent);
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        for (int c = 0; c < 6; ++c)
            EXPECT_NEAR(nodal[(2 + c / 3) * mesh.dof_num() + 3 * n + c % 3], strain[c], 1e-10 * 1e-4);
    // the points' stresses carry what the stiffness says: ∫ Bᵀ σ dV = K u
    const SparseKM km = testing::assemble(mesh, steel, solution.elasticity);
    multiply(km, km.K_value, solution.u, Ku);
    const auto reaction = internal_forces(mesh, solution.points, surface);
    const double largest = *std::max_element(Ku.begin(), Ku.end());
    EXPECT_GT(largest, 1e4);
    for (std::size_t d = 0; d < Ku.size(); ++d)
        EXPECT_NEAR(reaction[d], surface[d / 3] ? Ku[d] : 0.0, 1e-10 * largest);
}

// Rigid motions being without strain in the patch test, the zeros are theirs.
TEST_P(Element, StiffnessHasSixZeroModesAndTheMassIsPositive) {
    Mesh mesh = testing::box_mesh(distorted(true), GetParam());
    bend_edges(mesh, 0.003, true);
    const ElementType& type = element_type(GetParam());
    const Elasticity elasticity = build_elasticity(std::span(&steel, 1), silent);
    const int size = 3 * type.nodes;
    std::vector<double> ke(size * size), me(type.nodes * type.nodes);
    for (std::int32_t e : {0, 5, mesh.element_num() - 1}) {
        ASSERT_TRUE(testing::element_matrices(mesh, steel, elasticity)(e, ke.data(), me.data()));
        const auto values = eigenvalues(ke.data(), size), masses = eigenvalues(me.data(), type.nodes);
        for (int k = 0; k < 6; ++k) EXPECT_LT(std::abs(values[k]), 1e-12 * values[size - 1]) << "mode " << k;
        EXPECT_GT(values[6], 1e-4 * values[size - 1]) << "a seventh mode without energy";
        EXPECT_GT(masses[0], 1e-3 * masses[type.nodes - 1]);
    }
}

TEST_P(Element, CarriesMassFirstMomentAndInertia) {
    // a box aside: fᵀ M g = ρ ∫ f g dV
    const Grid grid{{2, 1, 2}, {0.4, 0.3, 0.5}, [](double* x) { x[2] += 0.7; }};
    const auto& size = grid.size;
    const double mean[3] = {size[0] / 2, size[1] / 2, size[2] / 2 + 0.7};
    const double mass = steel.density * size[0] * size[1] * size[2];
    const auto linear = moments(testing::box_mesh(grid, GetParam()));
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
    Mesh mesh = testing::box_mesh(distorted(), GetParam());
    bend_edges(mesh, 0.004, false);
    const auto bent = moments(mesh);
    const double total = steel.density * box[0] * box[1] * box[2];
    EXPECT_NEAR(bent[3][3], total, 1e-12 * total);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(bent[c][3], total * box[c] / 2, 1e-12 * total);
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
    auto exact_xx = [&](const double* x) {
        return -a * a * std::sin(a * x[0]) * std::sin(b * x[1]) * std::sinh(c * x[2]);
    };
    auto outside = [](const double* x) {
        return std::min({x[0], x[1], x[2], 1 - x[0], 1 - x[1], 1 - x[2]}) < 1e-9;
    };
    const ElementType& type = element_type(GetParam());
    auto errors = [&](int cells) {
        const Mesh mesh = testing::box_mesh({{cells, cells, cells}, {1, 1, 1}}, GetParam());
        const auto solution = testing::solve({mesh, steel, outside, field}, folder_.file("log"));
        double displacement = 0, inside = 0, strain = 0, volume = 0, exact[3];
        for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
            if (outside(&mesh.coordinates[3 * n])) continue;  // prescribed: without error
            field(&mesh.coordinates[3 * n], exact);
            for (int k = 0; k < 3; ++k) displacement += std::pow(solution.u[3 * n + k] - exact[k], 2);
            ++inside;
        }
        // strains at the corners of each element: at its centre or points they would be flattered
        for (std::int32_t k = 0; k < mesh.element_num() * type.nodes; ++k) {
            const std::int32_t e = k / type.nodes;
            double value = 0;
            for (int p = 0; p < type.points; ++p)
                value += type.extrapolation[k % type.nodes * type.points + p] *
                         solution.points.strain[6 * (e * type.points + p)];
            const double* x = &mesh.coordinates[3 * node_index(mesh.connectivity[k])];
            strain += solution.points.volume[e] * std::pow(value - exact_xx(x), 2);
            volume += solution.points.volume[e];
        }
        return std::pair{std::sqrt(displacement / inside), std::sqrt(strain / volume)};
    };
    const bool quadratic = GetParam() == ElementKind::tetrahedron10;
    const auto [u1, s1] = errors(quadratic ? 3 : 8);
    const auto [u2, s2] = errors(quadratic ? 6 : 16);
    EXPECT_GT(std::log2(u1 / u2), quadratic ? 2.9 : 1.9) << "order of the displacements";
    EXPECT_GT(std::log2(s1 / s2), quadratic ? 1.85 : 0.9) << "order of the strains";
}

TEST_P(Element, AnInvertedOrFlatElementIsTold) {
    for (double scale : {1.0, -1.0, 0.0}) {
        Mesh mesh = testing::box_mesh({{1, 1, 1}, {1, 1, 1}}, GetParam());
        for (std::size_t d = 2; d < mesh.coordinates.size(); d += 3) mesh.coordinates[d] *= scale;
        ElementPoints points;
        EXPECT_EQ(evaluate_points(element_type(GetParam()), mesh, 0, points), scale > 0) << scale;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Element, ::testing::ValuesIn(testing::every_kind));

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
