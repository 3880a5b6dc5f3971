// Whole nonlinear static analyses: against plastic beam theory, against the linear and explicit analyses, and
// what stopping, going on and diverging leave behind.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/explicit_driver.h"
#include "analysis/linear_driver.h"
#include "analysis/nonlinear_driver.h"
#include "input/model_reader.h"
#include "results/result_file.h"
#include "support/finite_problem.h"

namespace kestralum {
namespace {

using testing::FiniteProblem;
using testing::TempFolder;

// 140 wide × 200 deep × 2000 mm, E = 210e3, σy = 235 MPa, perfectly plastic. At 155 kN: 23.625 mm (Prager and
// Hodge, Theory of Perfectly Plastic Solids, 1951, beam theory with shear); collapse of the beam at
// b h² σy/4L = 164.5 kN, first yield at b h² σy/6L = 109.7 kN.
TEST(PlasticCantilever, BendsAsPragerAndHodgeComputeAndCollapsesAtThePlasticHinge) {
    const double b = 0.14, h = 0.2, L = 2;
    Material steel;
    steel.young = 210e9;
    steel.poisson = 0.3;
    steel.yield_stress = 235e6;
    FiniteProblem problem(testing::box_mesh({{2, 6, 26}, {b, h, L}, [L](double* x) { x[2] = L * std::pow(x[2] / L, 1.7); }}, ElementKind::tetrahedron10), steel,
                          // a beam's clamp: plane, but free to contract across as the theory has it
                          [&](const double* x, int c) {
                              return x[2] < 1e-12 && (c == 2 || std::abs(x[c] - (c == 0 ? b : h) / 2) < 1e-9);
                          }, 1e-6);
    const double traction[3] = {0, 1e3 / (b * h), 0};  // 1 kN in all: load factors are kN
    problem.start(testing::consistent_forces(problem.mesh, traction, [&](const double* x) { return x[2] > L - 1e-9; }));
    std::vector<double> kN{90, 110, 125, 140, 150, 155, 160, 164, 167, 169, 171, 173}, deflection;
    double first_yield = 0;
    for (std::size_t k = 0; k < kN.size(); ++k) {
        const IncrementReport report = problem.solver->advance(static_cast<std::int32_t>(k + 1), kN[k]);
        if (!report.converged) break;
        deflection.push_back(problem.displacement({b / 2, h / 2, L}, 1));
        if (first_yield == 0 && plastic_share(problem.body) > 0.001) first_yield = kN[k];
        RecordProperty(console::format("kN_%g", kN[k]), console::format("%.4f mm in %d iterations, plastic %.2f %%", 1e3 * deflection.back(),
                                                                       report.iterations, 100 * plastic_share(problem.body)));
        if (deflection.size() > 1 && kN[k] - kN[k - 1] < 0.02 * kN[0] / deflection[0] * (deflection[k] - deflection[k - 1])) break;
    }
    ASSERT_GE(deflection.size(), 6u);
    EXPECT_GT(1e3 * deflection[5], 23.3);
    EXPECT_LT(1e3 * deflection[5], 23.9);
    EXPECT_GT(first_yield, 90);
    EXPECT_LE(first_yield, 125);
    const double last = kN[std::min(deflection.size(), kN.size() - 1)];  // the load that the beam no longer carries
    EXPECT_GE(last, 160);
    EXPECT_LE(last, 175);
}

Settings nonlinear_settings(int threads = 2) {
    Settings settings;
    settings.memory_size = settings.free_hd_size = 1e5;
    settings.div_memory_size = 1;
    settings.ordering_type = "LALL";
    settings.nl_conv = 1e-8;
    settings.n_threads = threads;
    return settings;
}

class NonlinearAnalysis : public ::testing::Test {
protected:
    RunReport run(const std::string& text, const Settings& settings = nonlinear_settings(), double yield = 0, double hardening = 0) {
        read(text, yield, hardening);
        return run_nonlinear(store, settings, options);
    }
    void read(const std::string& text, double yield = 0, double hardening = 0) {
        store = placeholder_model();
        store.model_file_name = folder.write("model.txt", text);
        const ModelReadReport input = read_model_file(store, {});
        for (const auto& error : input.remarks.errors) ADD_FAILURE() << error;
        for (Material& m : store.materials) {
            m.yield_stress = yield;
            m.hardening = hardening;
        }
    }
    std::string file(const std::string& name) const { return testing::read_file(folder.path() / "log" / name); }

    console::Capture console_;
    TempFolder folder;
    ModelStore store;
    NonlinearOptions options;
};

// A clamped bar of 1 × 0.2 × 0.1 m bent by `force` at its end.
std::string bar(double force, int steps, int iterations = 50) {
    return console::format("material_info\nM 8000 200e9 0.3\n%%\nstep_num %d %%\niteration %d %%\npart_info\n"
                           "BAR blue M RECT 0.2 0.1 1 0 0 0 2 2 10 0 0 0 0 0 0 0 0 0\n%%\nboundary_condition\nFIX plane z 0 0 0 0 0 0\n%%\n"
                           "apply_force\nPULL area y %.17g 0 0.2 0 0.1 1 1\n%%\nEND\n", steps, iterations, force);
}

TEST_F(NonlinearAnalysis, ASmallLoadGivesTheLinearResultFile) {
    read(bar(1e-3, 1));
    ModelStore linear = store;
    Settings settings = nonlinear_settings();
    settings.nl_conv = 1e-6;
    const RunReport report = run_nonlinear(store, settings);
    ASSERT_EQ(report.status, RunStatus::done);
    EXPECT_EQ(report.nonlinear.increments.at(0).iterations, 1);
    ASSERT_EQ(run_static(linear, nonlinear_settings()).status, RunStatus::done);
    ASSERT_EQ(store.mesh.coordinates, linear.mesh.coordinates);
    const auto dofs = static_cast<std::size_t>(store.mesh.dof_num);
    const auto compare = [](const double* a, const double* b, std::size_t n, double tolerance) {
        double size = 0, error = 0;
        for (std::size_t k = 0; k < n; ++k) {
            size = std::max(size, std::abs(b[k]));
            error = std::max(error, std::abs(a[k] - b[k]));
        }
        EXPECT_LT(error, tolerance * size);
    };
    compare(store.results.mode_vec.data(), linear.results.mode_vec.data(), dofs, 1e-8);
    for (std::size_t group = 0; group < 4; ++group)
        compare(&store.results.node_stress[group * dofs], &linear.results.node_stress[group * dofs], dofs, 1e-7);
    for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(report.reaction[c], -report.applied[c], 1e-9 * 1e-3);
}

TEST_F(NonlinearAnalysis, EveryIncrementIsAFrameInAllFilesAndTheThreadsDoNotShow) {
    options.probes = {{0.1, 0.05, 1}};
    const RunReport report = run(bar(4e5, 4), nonlinear_settings(1), 250e6, 2e9);
    ASSERT_EQ(report.status, RunStatus::done) << report.remarks.errors.size();
    ASSERT_EQ(store.results.mode_num(), 4);
    EXPECT_EQ(store.results.n_freq, (std::vector<double>{0.25, 0.5, 0.75, 1}));
    EXPECT_GT(report.nonlinear.increments.back().plastic_share, 0.01);
    EXPECT_EQ(report.nonlinear.increments.front().plastic_share, 0);
    const std::string results = file("result_model.txt"), history = file("history_model.csv"), forces = file("Q.txt"), stress = file("integ_stress.txt");
    EXPECT_EQ(std::count(history.begin(), history.end(), '\n'), 5);
    EXPECT_EQ(std::count(forces.begin(), forces.end(), '\n'), report.free_dofs);
    EXPECT_EQ(std::count(stress.begin(), stress.end(), '\n'), 40 * 8);
    EXPECT_EQ(stress.compare(0, 7, "[1][0]:"), 0);
    EXPECT_NE(history.find(",uy_node"), std::string::npos);
    run(bar(4e5, 4), nonlinear_settings(2), 250e6, 2e9);
    EXPECT_TRUE(results == file("result_model.txt"));
    EXPECT_TRUE(forces == file("Q.txt"));
    EXPECT_TRUE(stress == file("integ_stress.txt"));
    ModelStore again = placeholder_model();
    ASSERT_TRUE(read_result_file("log\\result_model.txt", again));
    EXPECT_EQ(again.results.mode_num(), 4);
}

TEST_F(NonlinearAnalysis, ALooseToleranceConvergesInOneIterationAndTheLinesComeInOrder) {
    Settings settings = nonlinear_settings();
    settings.nl_conv = 1e30;
    const RunReport report = run(bar(4e5, 3), settings, 250e6, 2e9);
    for (const IncrementReport& increment : report.nonlinear.increments) EXPECT_EQ(increment.iterations, 1);
    std::size_t at = 0;
    for (const char* line : {"element_type=0\n", "diag_num=", "Boundary Condition", "Dmat", "########## Force Iteration: 1 ##########\n",
                             "########## Iteration: 0, 1/3 ##########\n", "Calculate K sparse Complete\n", "Kmat Time:  ", "Force Vector\n",
                             "Force Vector Complete\n", "K_F_Rigid Time:  ", "cal_QF Time:  ", "Q Rigid Transformaion\n", "Q_Rigid Time:  ",
                             "Static Analysis Start\n", "[L] division:1\n", "LU K_sparse\n", "LU K_sparse complete\n", "cal_stress Time:  ", "Q:", "du[0]:",
                             "########## Force Iteration: 2 ##########\n", "NLstatic Analysis Time:  "}) {
        const std::size_t found = console_.lines.find(line, at);
        EXPECT_NE(found, std::string::npos) << line;
        if (found != std::string::npos) at = found;
    }
}

TEST_F(NonlinearAnalysis, AnUnconvergedIncrementStopsOrGoesOnAsTheSettingsSay) {
    Settings settings = nonlinear_settings();
    settings.nl_conv = 1e-20;  // below rounding: nothing converges
    const RunReport stopped = run(bar(1e5, 3, 3), settings);
    EXPECT_EQ(stopped.status, RunStatus::failed);
    EXPECT_EQ(stopped.nonlinear.increments.size(), 1u);
    EXPECT_EQ(store.results.mode_num(), 1);
    EXPECT_TRUE(stopped.written);
    EXPECT_EQ(stopped.nonlinear.increments[0].iterations, 3);
    settings.nl_static = 1;
    const RunReport all = run(bar(1e5, 3, 3), settings);
    EXPECT_EQ(all.status, RunStatus::done);
    EXPECT_EQ(all.nonlinear.increments.size(), 3u);
    EXPECT_EQ(std::count_if(all.remarks.notices.begin(), all.remarks.notices.end(),
                            [](const std::string& n) { return n.find("did not converge") != std::string::npos; }), 3);
}

TEST_F(NonlinearAnalysis, ADivergenceKeepsTheFramesBeforeIt) {
    // a bar that nothing holds sideways beyond its plastic strength: 235e6 · 0.02 m² = 4.7e6 N in tension
    std::string text = bar(0, 4, 25);
    text.replace(text.find("PULL area y 0"), 13, "PULL area z 9e6");
    const RunReport report = run(text, nonlinear_settings(), 235e6, 0);
    EXPECT_EQ(report.status, RunStatus::failed);
    ASSERT_GE(report.nonlinear.increments.size(), 2u);
    EXPECT_LT(report.nonlinear.increments.size(), 4u);
    EXPECT_EQ(store.results.mode_num(), static_cast<std::int32_t>(report.nonlinear.increments.size()));
    EXPECT_TRUE(report.written);
    for (double u : store.results.mode_vec) ASSERT_TRUE(std::isfinite(u));
    EXPECT_FALSE(report.remarks.errors.empty());
}

TEST_F(NonlinearAnalysis, WrongMaterialsAndHeldBodiesAreRefused) {
    read(bar(1, 1));
    store.materials[0].poisson = 0.5;
    EXPECT_EQ(run_nonlinear(store, nonlinear_settings()).status, RunStatus::bad_input);
    read(bar(1, 1), 250e6, -1e9);
    EXPECT_EQ(run_nonlinear(store, nonlinear_settings()).status, RunStatus::bad_input);
    read(bar(1, 1));
    store.mode_count = 2000000000;
    EXPECT_EQ(run_nonlinear(store, nonlinear_settings()).status, RunStatus::bad_input);
}

// A plastic bar loaded at once, damped so that its displacement only rises, comes to rest where the nonlinear
// static analysis ends.
TEST_F(NonlinearAnalysis, AnExplicitRunDampedToRestAgreesWithinOnePercent) {
    const double Sy = 250e6, H = 40e9;
    std::string text = bar(0, 5);
    text.replace(text.find("PULL area y 0"), 13, "PULL area z 6.5e6");  // 325 MPa
    const RunReport report = run(text, nonlinear_settings(), Sy, H);
    ASSERT_EQ(report.status, RunStatus::done);
    const NodeValue rest = report.largest_displacement;
    read(text, Sy, H);
    store.control.d_time = 0;  // 0.9 of the stable step
    store.control.end_time = 0.08;
    store.control.output_frequency = 1000;
    store.control.c_alfa = 0.12;
    store.control.plastic = true;
    const RunReport dynamic = run_explicit(store, nonlinear_settings());
    ASSERT_EQ(dynamic.status, RunStatus::done);
    EXPECT_GT(dynamic.dynamics.plastic, 0);
    EXPECT_LT(dynamic.dynamics.kinetic, 1e-6 * dynamic.dynamics.internal);
    EXPECT_NEAR(dynamic.largest_displacement.value, rest.value, 0.01 * rest.value);
    RecordProperty("largest_displacement", console::format("%.6e against %.6e m", dynamic.largest_displacement.value, rest.value));
}

}  // namespace
}  // namespace kestralum
