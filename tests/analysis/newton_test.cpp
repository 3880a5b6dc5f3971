// The Newton iteration below the driver: patch at large strain, bar past yield, elastica, quadratic
// convergence, line search, what is committed.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "support/finite_problem.h"
#include "support/tensors.h"

namespace kestralum {
namespace {

using testing::box_mesh;
using testing::FiniteProblem;

Material material(double young, double poisson, double yield = 0, double hardening = 0) {
    return {.young = young, .poisson = poisson, .yield_stress = yield, .hardening = hardening};
}
bool foot(const double* x, int) {
    return x[2] < 1e-12;
}

class NewtonKinds : public ::testing::TestWithParam<testing::ElementForm> {};

TEST_P(NewtonKinds, AHomogeneousDeformationOfTwentyPercentIsReproducedOnADistortedMesh) {
    const auto outside = [](const double* x, int) {
        return std::min({x[0], x[1], x[2], 1 - x[0], 1 - x[1], 1 - x[2]}) < 1e-9;
    };
    const auto distort = [](double* x) {
        const double bump = 40 * x[0] * x[1] * x[2] * (1 - x[0]) * (1 - x[1]) * (1 - x[2]);
        x[0] += 0.09 * bump, x[1] -= 0.07 * bump, x[2] += 0.05 * bump;
    };
    const Mesh mesh = box_mesh({{3, 3, 3}, {1, 1, 1}, distort}, GetParam().kind);
    FiniteProblem problem(mesh, material(1e9, 0.3), outside, 1e-3, GetParam().form);
    const testing::Tensor H{0.2, 0.1, 0, -0.05, -0.1, 0.15, 0.1, 0, 0.1};
    std::mt19937 random(3);
    std::uniform_real_distribution<double> noise(-0.01, 0.01);
    auto& u = problem.body.u;
    std::vector<double> exact(u.size());
    for (std::size_t k = 0; k < exact.size(); ++k) {
        const double* X = &problem.mesh.coordinates[k / 3 * 3];
        if (k % 3 == 0) testing::apply(H, X, &exact[k]);
        u[k] = exact[k] + (outside(X, 0) ? 0 : noise(random));
    }
    ASSERT_EQ(update_stresses(problem.body), -1);
    problem.start({});
    const IncrementReport report = problem.solver->advance(1, 1);
    EXPECT_TRUE(report.converged);
    EXPECT_FALSE(report.searched);
    for (std::size_t k = 0; k < exact.size(); ++k) EXPECT_NEAR(u[k], exact[k], 1e-11);
    const auto& stress = problem.body.stress;
    for (std::size_t p = 6; p < stress.size(); ++p) EXPECT_NEAR(stress[p], stress[p % 6], 1e-2);
}

// Three planes of symmetry; the end pulled by a uniform traction.
TEST_P(NewtonKinds, ABarPastYieldStretchesByTheHardeningLineAndKeepsItsPlasticPart) {
    const double small = 1e-5;  // strains of 1e-7: all measures agree
    const double E = 200e9, Sy = small * 250e6, Hm = 20e9, L = 2, sigma = small * 400e6;
    const auto planes = [](const double* x, int c) { return x[c] < 1e-12; };
    const Mesh mesh = box_mesh({{2, 2, 4}, {0.3, 0.3, L}}, GetParam().kind);
    FiniteProblem problem(mesh, material(E, 0.3, Sy, Hm), planes, 1e-11, GetParam().form);
    problem.start_with_traction(2, sigma);
    const double elastic = sigma / E * L, plastic = (sigma - Sy) / Hm * L, stretched = elastic + plastic;
    // elastic; past yield; unloaded; elastic up to the stress it has seen
    const double load[] = {0.5, 1, 0, 1}, expected[] = {0.5 * elastic, stretched, plastic, stretched};
    for (int k = 0; k < 4; ++k) {
        ASSERT_TRUE(problem.solver->advance(k + 1, load[k]).converged);
        EXPECT_NEAR(problem.displacement({0, 0, L}, 2), expected[k], 1e-6 * expected[k]) << "step " << k + 1;
        for (std::size_t p = 0; p < problem.body.stress.size(); ++p)
            EXPECT_NEAR(problem.body.stress[p], p % 6 == 2 ? load[k] * sigma : 0, 1e-6 * sigma);
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, NewtonKinds, ::testing::ValuesIn(testing::every_form));

// Two iterations are too few for a bending step: started once more, nothing committed.
TEST(NewtonAttempts, AnIncrementThatFailsIsStartedOnceMoreFromTheCommittedState) {
    FiniteProblem bent(box_mesh({{2, 2, 10}, {0.1, 0.1, 2}}, ElementKind::hexahedron),
                       material(1e9, 0.3, 1e6, 1e7), foot, 1e-10);
    bent.newton.limit = 2;
    bent.start_with_traction(1, 2e5);
    const IncrementReport report = bent.solver->advance(1, 1);
    EXPECT_FALSE(report.converged);
    EXPECT_TRUE(report.searched);
    EXPECT_EQ(report.iterations, 2);
    EXPECT_EQ(bent.solver->outcome, NewtonOutcome::unconverged);
    EXPECT_GT(std::ranges::max(bent.body.current, {}, &FinitePointState::alpha).alpha, 0);
    for (const FinitePointState& state : bent.body.committed) EXPECT_EQ(state.alpha, 0);
    EXPECT_GT(bent.displacement({0, 0, 2}, 1), 0);  // the last iterate stands
}

}  // namespace
}  // namespace kestralum
