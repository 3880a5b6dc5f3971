// The Newton iteration below the driver: patch at large strain, bar past yield, elastica, quadratic
// convergence, line search, what is committed.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "support/finite_problem.h"

namespace kestralum {
namespace {

using testing::FiniteProblem;

Material material(double young, double poisson, double yield = 0, double hardening = 0) {
    Material m;
    m.young = young;
    m.poisson = poisson;
    m.yield_stress = yield;
    m.hardening = hardening;
    return m;
}

class NewtonKinds : public ::testing::TestWithParam<ElementKind> {};

TEST_P(NewtonKinds, AHomogeneousDeformationOfTwentyPercentIsReproducedOnADistortedMesh) {
    const auto outside = [](const double* x, int) {
        return std::min({x[0], x[1], x[2], 1 - x[0], 1 - x[1], 1 - x[2]}) < 1e-9;
    };
    const auto distort = [](double* x) {
        const double bump = 40 * x[0] * x[1] * x[2] * (1 - x[0]) * (1 - x[1]) * (1 - x[2]);
        x[0] += 0.09 * bump, x[1] -= 0.07 * bump, x[2] += 0.05 * bump;
    };
    FiniteProblem problem(testing::box_mesh({{3, 3, 3}, {1, 1, 1}, distort}, GetParam()), material(1e9, 0.3), outside, 1e-3);
    const double H[9] = {0.2, 0.1, 0, -0.05, -0.1, 0.15, 0.1, 0, 0.1};
    std::mt19937 random(3);
    std::uniform_real_distribution<double> noise(-0.01, 0.01);
    std::vector<double> exact(problem.body.u.size());
    for (std::size_t k = 0; k < exact.size(); ++k) {
        const double* X = &problem.mesh.coordinates[k / 3 * 3];
        for (std::size_t c = 0; c < 3; ++c) exact[k] += H[3 * (k % 3) + c] * X[c];
        problem.body.u[k] = exact[k] + (outside(X, 0) ? 0 : noise(random));
    }
    ASSERT_EQ(update_stresses(problem.body), -1);
    problem.start({});
    const IncrementReport report = problem.solver->advance(1, 1);
    EXPECT_TRUE(report.converged);
    EXPECT_FALSE(report.searched);
    for (std::size_t k = 0; k < exact.size(); ++k) EXPECT_NEAR(problem.body.u[k], exact[k], 1e-11);
    for (std::size_t p = 6; p < problem.body.stress.size(); ++p) EXPECT_NEAR(problem.body.stress[p], problem.body.stress[p % 6], 1e-2);
}

// Three planes of symmetry; the end pulled by a uniform traction.
TEST_P(NewtonKinds, ABarPastYieldStretchesByTheHardeningLineAndKeepsItsPlasticPart) {
    const double E = 200e9, Sy = 250e6, Hm = 20e9, L = 2, side = 0.3, small = 1e-5;  // strains of 1e-7: all measures agree
    const auto planes = [](const double* x, int c) { return x[c] < 1e-12; };
    FiniteProblem problem(testing::box_mesh({{2, 2, 4}, {side, side, L}}, GetParam()), material(E, 0.3, small * Sy, Hm), planes, 1e-11);
    const double sigma = small * 400e6;
    const double traction[3] = {0, 0, sigma};
    problem.start(testing::consistent_forces(problem.mesh, traction, [&](const double* x) { return x[2] > L - 1e-9; }));
    ASSERT_TRUE(problem.solver->advance(1, 0.5).converged);
    EXPECT_NEAR(problem.displacement({0, 0, L}, 2), 0.5 * sigma / E * L, 1e-6 * sigma / E * L);  // elastic
    const IncrementReport loaded = problem.solver->advance(2, 1);
    ASSERT_TRUE(loaded.converged);
    const double plastic = (sigma - small * Sy) / Hm * L, elastic = sigma / E * L;
    EXPECT_NEAR(problem.displacement({0, 0, L}, 2), elastic + plastic, 1e-6 * (elastic + plastic));
    const double stretched = problem.displacement({0, 0, L}, 2);
    ASSERT_TRUE(problem.solver->advance(3, 0).converged);
    EXPECT_NEAR(problem.displacement({0, 0, L}, 2), plastic, 1e-6 * plastic);
    for (double s : problem.body.stress) EXPECT_NEAR(s, 0, 1e-6 * sigma);
    ASSERT_TRUE(problem.solver->advance(4, 1).converged);  // elastic up to the stress it has seen
    EXPECT_NEAR(problem.displacement({0, 0, L}, 2), stretched, 1e-8 * stretched);
}

INSTANTIATE_TEST_SUITE_P(Kinds, NewtonKinds,
                         ::testing::Values(ElementKind::hexahedron, ElementKind::tetrahedron4, ElementKind::tetrahedron10));

// Cantilever, end force, PL²/EI = 1, 2, 5, 10: tip deflection over length (Bisshopp and Drucker, Quart. Appl.
// Math. 3, 1945; Mattiasson, Int. J. Numer. Meth. Engng 17, 1981).
TEST(Elastica, ASlenderCantileverBendsAsTheElasticaDoes) {
    const double E = 1e9, L = 1, side = 0.02, I = side * side * side * side / 12;
    FiniteProblem problem(testing::box_mesh({{1, 1, 40}, {side, side, L}}, ElementKind::tetrahedron10), material(E, 0.0),
                          [](const double* x, int) { return x[2] < 1e-12; }, 1e-8);
    const double traction[3] = {0, 10 * E * I / (L * L) / (side * side), 0};
    problem.start(testing::consistent_forces(problem.mesh, traction, [&](const double* x) { return x[2] > L - 1e-9; }));
    const double published[] = {0.3017, 0.4935, 0.7138, 0.8106};
    const double factors[] = {0.1, 0.2, 0.5, 1.0};
    std::int32_t number = 0;
    for (std::size_t k = 0; k < 4; ++k) {
        const IncrementReport report = problem.solver->advance(++number, factors[k]);
        ASSERT_TRUE(report.converged) << factors[k];
        const double tip = problem.displacement({side / 2, side / 2, L}, 1);
        EXPECT_NEAR(tip, published[k], 0.003 * published[k]);
        // the last errors fall quadratically, down to rounding
        const auto& e = report.ratios;
        ASSERT_GE(e.size(), 3u);
        EXPECT_TRUE(e.back() < 1e-3 * e[e.size() - 2] || e[e.size() - 2] < 1e-5) << e[e.size() - 2] << ' ' << e.back();
        std::string table;
        for (double r : e) table += console::format(" %.1e", r);
        RecordProperty("increment" + std::to_string(k + 1), console::format("v/L %.5f, E/F%s", tip, table.c_str()));
    }
}

TEST(NewtonAttempts, AnIncrementThatFailsIsStartedOnceMoreFromTheCommittedState) {
    // a limit of two iterations, too few for a bending step: unconverged, started once more, nothing committed
    FiniteProblem problem(testing::box_mesh({{2, 2, 10}, {0.1, 0.1, 2}}, ElementKind::hexahedron), material(1e9, 0.3, 1e6, 1e7),
                          [](const double* x, int) { return x[2] < 1e-12; }, 1e-10);
    problem.options.limit = 2;
    const double traction[3] = {0, 2e4, 0};
    problem.start(testing::consistent_forces(problem.mesh, traction, [&](const double* x) { return x[2] > 2 - 1e-9; }));
    const IncrementReport report = problem.solver->advance(1, 1);
    EXPECT_FALSE(report.converged);
    EXPECT_TRUE(report.searched);
    EXPECT_EQ(report.iterations, 2);
    EXPECT_EQ(problem.solver->outcome, NewtonOutcome::unconverged);
    for (const FinitePointState& state : problem.body.committed) EXPECT_EQ(state.alpha, 0);
    EXPECT_GT(problem.displacement({0, 0, 2}, 1), 0);  // the last iterate stands
}

TEST(NewtonAttempts, ALoadBeyondTheLimitDivergesAndLeavesTheLastAcceptedState) {
    // perfectly plastic bar pulled to twice its strength: no balance exists
    FiniteProblem problem(testing::box_mesh({{1, 1, 2}, {0.1, 0.1, 0.4}}, ElementKind::hexahedron), material(1e9, 0.3, 1e6, 0),
                          [](const double* x, int c) { return x[c] < 1e-12; }, 1e-10);
    problem.options.limit = 30;
    const double traction[3] = {0, 0, 2e6};
    problem.start(testing::consistent_forces(problem.mesh, traction, [&](const double* x) { return x[2] > 0.4 - 1e-9; }));
    ASSERT_TRUE(problem.solver->advance(1, 0.4).converged);
    const std::vector<double> u = problem.body.u;
    const IncrementReport report = problem.solver->advance(2, 1);
    EXPECT_FALSE(report.converged);
    EXPECT_TRUE(report.searched);
    for (const FinitePointState& state : problem.body.committed) EXPECT_EQ(state.alpha, 0);
    if (problem.solver->outcome == NewtonOutcome::diverged) {
        EXPECT_EQ(problem.body.u, u);
        EXPECT_FALSE(problem.solver->error.empty());
    }
}

TEST(NewtonAttempts, SmallLoadsGiveTheLinearAnswer) {
    for (const ElementKind kind : {ElementKind::hexahedron, ElementKind::tetrahedron4, ElementKind::tetrahedron10}) {
        const Material steel = material(206e9, 0.3);
        FiniteProblem problem(testing::box_mesh({{2, 2, 5}, {0.2, 0.3, 1}}, kind), steel, [](const double* x, int) { return x[2] < 1e-12; }, 1e-12);
        const double traction[3] = {0.01, 0.02, -0.03};
        const auto force = testing::consistent_forces(problem.mesh, traction, [](const double* x) { return x[2] > 1 - 1e-9; });
        problem.start(force);
        problem.options.tolerance = 1e-7;
        ASSERT_TRUE(problem.solver->advance(1, 1).converged);
        const testing::Solution linear = testing::solve({problem.mesh, steel, [](const double* x) { return x[2] < 1e-12; },
                                                         [](const double*, double* u) { u[0] = u[1] = u[2] = 0; }, force});
        double largest = 0;
        for (double u : linear.u) largest = std::max(largest, std::abs(u));
        for (std::size_t k = 0; k < linear.u.size(); ++k) EXPECT_NEAR(problem.body.u[k], linear.u[k], 1e-8 * largest);
        double stress = 0;
        for (double s : linear.points.stress) stress = std::max(stress, std::abs(s));
        for (std::size_t k = 0; k < linear.points.stress.size(); ++k) EXPECT_NEAR(problem.body.stress[k], linear.points.stress[k], 1e-7 * stress);
    }
}

}  // namespace
}  // namespace kestralum
