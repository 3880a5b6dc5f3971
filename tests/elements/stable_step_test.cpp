// The time step of the explicit analysis: its size, and which elements set it.
#include <gtest/gtest.h>
#include <jama/jama_eig.h>

#include <cmath>

#include "elements/elasticity.h"
#include "elements/stable_step.h"
#include "support/assembled.h"
#include "support/box_mesh.h"

namespace kestralum {
namespace {

const Material steel{.id = 0, .name = "S", .density = 7800, .young = 2e11, .poisson = 0.3};
const std::vector<Part> parts(1);

// Of the nodes, four numbers each, z by `flatter`.
std::vector<double> places(const Mesh& mesh, double flatter = 1) {
    std::vector<double> x;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const double* at = mesh.node(n);
        x.insert(x.end(), {at[0], at[1], flatter * at[2], 0});
    }
    return x;
}

// A thick and a thin element: only those that can be strained bound the step, all of them where none can.
TEST(StableStep, ElementsInsideRigidBodiesDoNotBoundIt) {
    Mesh mesh = testing::hexa_box({{2, 1, 1}, {2, 1, 1}});
    for (std::size_t n = 0; n < mesh.coordinates.size(); n += 3)
        if (mesh.coordinates[n] == 1) mesh.coordinates[n] = 1.9;
    const std::vector<double> x = places(mesh);
    const auto bound = [&](std::vector<char> rigid) {
        return StepBound(mesh, parts, std::span(&steel, 1), 1, 1, rigid);
    };
    const StableStep thin = bound({}).undeformed(), thick = bound({0, 1}).undeformed();
    EXPECT_EQ(thin.element, 1);
    EXPECT_EQ(thick.element, 0);
    EXPECT_GT(thick.step, 2 * thin.step);
    EXPECT_EQ(bound({1, 1}).undeformed().step, thin.step);
    EXPECT_EQ(bound({}).worst_above(x.data(), 0.99 * thick.step, 1).element, 1);
    EXPECT_EQ(bound({0, 1}).worst_above(x.data(), 0.99 * thick.step, 1).element, -1);
}

TEST(StableStep, IsThatOfTheLargestEigenvalueOfTheFullDecomposition) {
    for (auto kind : testing::every_kind) {
        const testing::Grid grid{{1, 1, 1}, {1, 0.7, 0.4}, [](double* x) { x[0] += 0.2 * x[1] * x[2]; }};
        const Mesh mesh = testing::box_mesh(grid, kind);
        const ElementType& type = element_type(kind);
        SilentProgress silent;
        const Elasticity elasticity = build_elasticity(std::span(&steel, 1), silent);
        const int size = 3 * type.nodes;
        double largest = 0;
        for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
            std::vector<double> ke(900), me(100), mass(30);
            ASSERT_TRUE(testing::element_matrices(mesh, steel, elasticity)(e, ke.data(), me.data()));
            for (int i = 0; i < size; ++i) mass[i] = 1.5 * me[(i / 3) * (type.nodes + 1)];
            TNT::Array2D<double> A(size, size);
            for (int i = 0; i < size; ++i)
                for (int j = 0; j <= i; ++j)
                    A[i][j] = A[j][i] = ke[i * size + j] / std::sqrt(mass[i] * mass[j]);
            TNT::Array1D<double> values;
            JAMA::Eigenvalue<double>(A).getRealEigenvalues(values);
            const double exact = values[size - 1];
            EXPECT_NEAR(largest_eigenvalue(size, ke.data(), mass.data()), exact, 2e-3 * exact) << type.name;
            largest = std::max(largest, exact);
        }
        const StepBound bound(mesh, parts, std::span(&steel, 1), 1.5, 2);
        const double stable = bound.undeformed().step;
        EXPECT_NEAR(stable, 2 / std::sqrt(largest), 1e-3 * stable);

        // flattened to a tenth: a tenth of the step is passed, the same shape at a step below it is not
        const std::vector<double> x = places(mesh, 0.1);
        EXPECT_EQ(bound.worst_above(x.data(), 0.05 * stable, 2).element, -1);
        const StableStep worst = bound.worst_above(x.data(), 0.5 * stable, 2);
        EXPECT_GE(worst.element, 0);
        EXPECT_LT(worst.step, 0.4 * stable);
    }
}

}  // namespace
}  // namespace kestralum
