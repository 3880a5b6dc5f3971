// Whole nonlinear static analyses: against plastic beam theory, against the linear and explicit analyses, and
// what stopping, going on and diverging leave behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "analysis/nonlinear/nonlinear_analysis.h"
#include "analysis/static/static_analysis.h"
#include "model/selection.h"
#include "model/topology.h"
#include "results/history.h"
#include "results/result_file.h"
#include "support/finite_problem.h"

namespace kestralum {
namespace {

using testing::box_mesh;
using testing::FiniteProblem;

// 140 wide × 200 deep × 2000 mm, E = 210e3, σy = 235 MPa, perfectly plastic. At 155 kN: 23.625 mm (Prager and
// Hodge, Theory of Perfectly Plastic Solids, 1951, beam theory with shear); collapse of the beam at
// b h² σy/4L = 164.5 kN, first yield at b h² σy/6L = 109.7 kN.
class PlasticCantilever : public ::testing::TestWithParam<testing::ElementForm> {};

TEST_P(PlasticCantilever, BendsAsPragerAndHodgeComputeAndCollapsesAtThePlasticHinge) {
    static constexpr double b = 0.14, h = 0.2, L = 2;
    const Material steel{.young = 210e9, .poisson = 0.3, .yield_stress = 235e6};
    const auto graded = [](double* x) { x[2] = L * std::pow(x[2] / L, 1.7); };
    // a beam's clamp: plane, but free to contract across as the theory has it
    const auto held = [](const double* x, int c) {
        return x[2] < 1e-12 && (c == 2 || std::abs(x[c] - (c == 0 ? b : h) / 2) < 1e-9);
    };
    const auto [kind, form] = GetParam();
    const Mesh mesh = box_mesh({{2, 6, 26}, {b, h, L}, graded}, kind);
    FiniteProblem problem(mesh, steel, held, 1e-6, form);
    problem.start_with_traction(1, 1e3 / (b * h));  // 1 kN in all: load factors are kN
    const std::vector<double> kN{90, 110, 125, 140, 150, 155, 160, 164, 167, 169, 171, 173};
    std::vector<double> deflection;
    double first_yield = 0;
    for (int k = 0; k < 12; ++k) {
        if (!problem.solver->advance(k + 1, kN[k]).converged) break;
        deflection.push_back(problem.displacement({b / 2, h / 2, L}, 1));
        if (first_yield == 0 && plastic_share(problem.body) > 0.001) first_yield = kN[k];
        const double softest = 0.02 * kN[0] / deflection[0];
        if (k > 0 && kN[k] - kN[k - 1] < softest * (deflection[k] - deflection[k - 1])) break;
    }
    ASSERT_GE(deflection.size(), 6u);
    EXPECT_NEAR(1e3 * deflection[5], 23.6, 0.3);
    EXPECT_TRUE(first_yield > 90 && first_yield <= 125) << first_yield;
    const double last = kN[std::min(deflection.size(), kN.size() - 1)];  // what the beam no longer carries
    EXPECT_TRUE(last >= 160 && last <= 175) << last;
}

INSTANTIATE_TEST_SUITE_P(Forms, PlasticCantilever,
                         ::testing::Values(testing::ElementForm{ElementKind::tetrahedron10},
                                           testing::ElementForm{ElementKind::hexahedron,
                                                                HexahedronForm::enhanced}));

class NonlinearAnalysis : public testing::AnalysisTest {
protected:
    RunReport run(const std::string& text, double yield = 0, double hardening = 0) {
        read(text, yield, hardening);
        return analyse(analyse_nonlinear);
    }
    void read(const std::string& text, double yield = 0, double hardening = 0) {
        AnalysisTest::read(text);
        for (Material& m : model.materials) {
            m.yield_stress = yield;
            m.hardening = hardening;
        }
    }
};

// A clamped bar of 1 × 0.2 × 0.1 m with `force` at its end.
std::string bar(double force, int steps, int iterations = 50, char axis = 'y',
                const std::string& part = testing::rect("BAR", "0.2 0.1 1", "2 2 10")) {
    return testing::ModelText{.material = "8000 200e9 0.3",
                              .parts = part,
                              .supports = "FIX plane z 0 0 0 0 0 0",
                              .forces = formatted("PULL area %c %.17g 0 0.2 0 0.1 1 1", axis, force),
                              .others = formatted("step_num %d %%\niteration %d %%\n", steps, iterations)};
}

TEST_F(NonlinearAnalysis, ASmallLoadGivesTheLinearResultFile) {
    settings.nl_conv = 1e-6;
    settings.ordering_type = "LMAX";  // the same numbers
    for (const auto& [kind, form] : testing::every_form) {
        options.hexahedra = form;
        const RunReport report = run(bar(1e-3, 1, 50, 'y', part_of(kind, {{2, 2, 10}, {0.2, 0.1, 1}})));
        testing::expect_done(report);
        EXPECT_EQ(report.nonlinear.increments.at(0).iterations, 1);
        const kestralum::Run nonlinear = result;
        testing::expect_done(analyse(analyse_static));
        ASSERT_EQ(result.mesh.coordinates, nonlinear.mesh.coordinates);
        const std::size_t dofs = result.mesh.dof_num();
        testing::expect_equal(nonlinear.results[0]->mode_vec, frame().mode_vec, 1e-8);
        for (int group = 0; group < 4; ++group)
            testing::expect_equal(nonlinear.results[0]->node_stress, frame().node_stress, 1e-7, group * dofs,
                                  dofs);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(report.reaction[c], -report.applied[c], 1e-9 * 1e-3);
    }
}

TEST_F(NonlinearAnalysis, EveryIncrementIsAFrameInAllFiles) {
    options.probes = {{0.1, 0.05, 1}};
    const RunReport report = run(bar(4e5, 4), 250e6, 2e9);
    testing::expect_done(report);
    ASSERT_EQ(result.mode_num(), 4);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(frame(k).n_freq, 0.25 * (k + 1));
    EXPECT_GT(report.nonlinear.increments.back().plastic_share, 0.01);
    EXPECT_EQ(report.nonlinear.increments.front().plastic_share, 0);
    for (const auto& [name, lines] :
         {std::pair<const char*, std::ptrdiff_t>{"history_nonlinear_model.csv", 5},
          {"Q.txt", report.free_dofs},
          {"integ_stress.txt", 40 * 8}})
        EXPECT_EQ(std::ranges::count(file(name), '\n'), lines) << name;
    EXPECT_TRUE(file("integ_stress.txt").starts_with("[1][0]:"));
    EXPECT_TRUE(testing::contains(file("history_nonlinear_model.csv"), ",uy_node"));
    // as curves: the probe moves as the frames do, the supports hold what pulls
    const std::int32_t node =
        nearest_node(result.mesh, elements_of_nodes(result.mesh), options.probes[0]) + 1;
    const History curves = make_history(result, std::array{node});
    std::map<std::string, std::vector<double>> curve;
    for (const HistoryColumn& c : curves.columns) curve[with_unit(c.name, c.unit)] = c.values;
    const std::string of_node = "ode " + std::to_string(node) + " displacement y [m]";
    EXPECT_EQ(curve.at("Probe n" + of_node), curve.at("N" + of_node));
    EXPECT_GT(curve.at("N" + of_node)[3], 1e-4);
    for (int k = 0; k < 4; ++k)
        EXPECT_NEAR(curve.at("Reaction y [N]")[k], -curves.x[k] * report.applied[1], 1e-5 * 4e5);
    const auto again = read_result_file("log\\result_model.txt", folder.file("log"), said);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->run.mode_num(), 4);
}

TEST_F(NonlinearAnalysis, AnUnconvergedIncrementStopsOrGoesOnAsTheSettingsSay) {
    settings.nl_conv = 1e-20;  // below rounding: nothing converges
    const RunReport stopped = run(bar(1e5, 3, 3));
    EXPECT_EQ(stopped.status, RunStatus::failed);
    ASSERT_EQ(stopped.nonlinear.increments.size(), 1u);
    EXPECT_EQ(stopped.nonlinear.increments[0].iterations, 3);
    EXPECT_EQ(result.mode_num(), 1);
    EXPECT_TRUE(stopped.written);
    settings.nl_static = 1;
    const RunReport all = run(bar(1e5, 3, 3));
    EXPECT_EQ(all.status, RunStatus::done);
    EXPECT_EQ(all.nonlinear.increments.size(), 3u);
    EXPECT_EQ(std::ranges::count_if(all.remarks.notices,
                                    [](const auto& n) { return testing::contains(n, "did not converge"); }),
              3);
    // beyond its plastic strength, 235e6 · 0.02 m² = 4.7e6 N, the bar has no balance: the frames before it
    // stay
    settings.nl_conv = 1e-8;
    settings.nl_static = 0;
    const RunReport torn = run(bar(9e6, 4, 25, 'z'), 235e6, 0);
    EXPECT_TRUE(torn.status == RunStatus::failed && torn.written);
    EXPECT_TRUE(result.mode_num() == 2 || result.mode_num() == 3) << result.mode_num();
    EXPECT_EQ(result.mode_num(), torn.nonlinear.increments.size());
    for (double u : result.results.back()->mode_vec) ASSERT_TRUE(std::isfinite(u));
}

TEST_F(NonlinearAnalysis, WrongMaterialsAndHugeCountsAreRefused) {
    const auto refused = [&](double hardening, double poisson, int steps) {
        read(bar(1, 1), 250e6, hardening);
        model.materials[0].poisson = poisson;
        model.mode_count = steps;
        EXPECT_EQ(analyse(analyse_nonlinear).status, RunStatus::bad_input);
    };
    refused(-1e9, 0.3, 1);
    refused(0, 0.5, 1);
    refused(0, 0.3, 2000000000);
}

}  // namespace
}  // namespace kestralum
