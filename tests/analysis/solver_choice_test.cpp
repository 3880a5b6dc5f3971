// Whole analyses with each way to factor: the same answers, the files and lines that belong to each, and
// bodies that hang loose told from slender ones.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/nonlinear/nonlinear_analysis.h"
#include "analysis/static/static_analysis.h"
#include "solver/factor_files.h"
#include "support/analysis_run.h"
#include "system/model_check.h"

namespace kestralum {
namespace {

using testing::ModelText;
using testing::rect;

class Solver : public testing::AnalysisTest {
protected:
    // Of the first frame, with the factor files that were left.
    std::vector<double> run(Analyse analysis, const std::string& solver, double megabytes = 4000) {
        remove_factor_files(folder.file("log"));
        settings.solver = solver;
        settings.memory_size = megabytes;
        testing::expect_done(analyse(analysis));
        left.clear();
        for (const std::string& name : list_factor_files(folder.file("log")).names)
            left += std::filesystem::path(name).filename().string() + " ";
        return result.results.empty() ? std::vector<double>{} : frame().mode_vec;
    }
    std::string left;
};

TEST_F(Solver, GivesTheSameAnswersInEveryAnalysis) {
    const std::string block = rect("b", "0.2 0.3 1", "4 5 12"), clamp = "c plane z 0 0 0 0 0 0";
    const ModelText plain{.parts = block, .supports = clamp, .forces = "f area y 1e6 0 0.2 0 0.3 1 1"};
    ModelText capped = plain;
    capped.rigid = "cap area 0.2 0.3 1 0 0.2 0 0.3 1 1 %";
    for (const ModelText& text : {plain, capped}) {
        ASSERT_TRUE(read(text));
        model.mode_count = 6;
        for (const Analyse analysis : {analyse_static, analyse_eigen_subspace, analyse_eigen_lanczos}) {
            const std::vector<double> skyline = run(analysis, "skyline");
            const std::vector<ModeReport> modes = result.report.modes;
            EXPECT_TRUE(testing::contains(left, "Ltemp_0.txt")) << left;
            EXPECT_TRUE(result.report.solver.empty());
            said.lines.clear();
            const std::vector<double> sparse = run(analysis, "sparse");
            EXPECT_EQ(left, "");
            EXPECT_TRUE(result.report.solver.ends_with(": sparse")) << result.report.solver;
            EXPECT_TRUE(testing::contains(said.lines, "[L]memory size=") &&
                        !testing::contains(said.lines, "temp_n"));
            if (analysis == analyse_static) testing::expect_equal(sparse, skyline, 1e-9);
            ASSERT_EQ(result.report.modes.size(), modes.size());
            for (std::size_t j = 0; j < modes.size(); ++j)
                EXPECT_NEAR(result.report.modes[j].frequency, modes[j].frequency, 1e-8 * modes[j].frequency);
            // too little memory: panels on disk, the same bytes
            EXPECT_EQ(run(analysis, "sparse", 0.1), sparse);
            EXPECT_EQ(left, "Stemp_0.txt ");
            EXPECT_EQ(run(analysis, "auto"), skyline) << "a small model keeps the skyline";
        }
    }
    ASSERT_TRUE(read(plain));
    model.mode_count = 2;
    testing::expect_equal(run(analyse_nonlinear, "sparse"), run(analyse_nonlinear, "skyline"), 1e-9);
    EXPECT_EQ(run(analyse_nonlinear, "iterative").size(), frame().mode_vec.size());
    const ModelText texts[] = {plain, capped};
    for (const ModelText& text : texts) {
        ASSERT_TRUE(read(text));
        settings.solver_tolerance = 1e-11;
        testing::expect_equal(run(analyse_static, "iterative"), run(analyse_static, "skyline"), 1e-9);
        run(analyse_static, "iterative");
        EXPECT_TRUE(testing::contains(result.report.solver, ": iterative, ")) << result.report.solver;
        EXPECT_TRUE(testing::contains(result.report.solver, " iterations, residual "))
            << result.report.solver;
        EXPECT_TRUE(result.report.remarks.notices.empty());
        // with rigid elements the factor is taken
        run(analyse_eigen_subspace, "iterative");
        EXPECT_EQ(testing::contains(testing::joined(result.report.remarks.notices), "gave way to the factor"),
                  &text != &texts[0]);
        const std::vector<ModeReport> modes = result.report.modes;
        run(analyse_eigen_subspace, "sparse");
        for (std::size_t j = 0; j < modes.size(); ++j)
            EXPECT_NEAR(modes[j].frequency, result.report.modes[j].frequency, 1e-8 * modes[j].frequency);
    }
    settings.free_hd_size = 0.1;
    settings.solver = "sparse";
    settings.memory_size = 0.1;
    EXPECT_EQ(analyse(analyse_static).status, RunStatus::disk_budget);
}

// A free body has its six rigid motions first; two of them are more than the iteration takes.
TEST_F(Solver, ModesOfFreeBodiesByIteration) {
    const std::string one = rect("a", "0.2 0.3 1", "3 4 9"),
                      two = one + rect("b", "0.2 0.3 1", "3 4 9", "3 0 0");
    for (const std::string& parts : {one, two}) {
        ASSERT_TRUE(read(ModelText{.parts = parts}));
        model.mode_count = 15;
        run(analyse_eigen_subspace, "iterative");
        const std::vector<ModeReport> modes = result.report.modes;
        EXPECT_EQ(testing::contains(testing::joined(result.report.remarks.notices), "gave way to the factor"),
                  parts == two);
        run(analyse_eigen_subspace, "skyline");
        ASSERT_EQ(modes.size(), 15);
        for (std::size_t j = 0; j < modes.size(); ++j) {
            EXPECT_EQ(modes[j].zero, j < (parts == one ? 6 : 12));
            if (modes[j].zero) continue;
            EXPECT_NEAR(modes[j].frequency, result.report.modes[j].frequency, 1e-7 * modes[j].frequency);
        }
    }
}

TEST_F(Solver, LooseBodiesAreNamedAndSlenderOnesAreNot) {
    const std::string clamp = "c plane x 0 0 0 0 0 0";
    const std::string held = rect("a", "1 1 1", "2 2 2"), loose = rect("b", "1 1 1", "3 3 3", "3 0 0");
    for (const std::string solver : {"skyline", "sparse", "iterative"}) {
        SCOPED_TRACE(solver);
        settings.solver = solver;
        for (const std::string& supports : {clamp, std::string(), std::string("p volume x 0 0 0 0 0 0")}) {
            ASSERT_TRUE(read(ModelText{.parts = held + loose, .supports = supports}));
            const RunReport report = analyse(analyse_static);
            EXPECT_EQ(report.status, RunStatus::failed);
            ASSERT_EQ(report.remarks.errors.size(), 1);
            int node = 0;
            char axis = 0;
            double x[3];
            ASSERT_EQ(
                std::sscanf(report.remarks.errors[0].c_str(),
                            "the body is free: the supports do not hold node %d at (%lf, %lf, %lf) in %c",
                            &node, x, x + 1, x + 2, &axis),
                5)
                << report.remarks.errors[0];
            EXPECT_GE(x[0], supports == clamp ? 3 : 0);
            EXPECT_EQ(testing::contains(testing::joined(report.remarks.notices), "gave way to the factor"),
                      solver == "iterative");
        }
        // 2000 times longer than thick: its softest pivots are as small as those of a loose body
        ASSERT_TRUE(read(ModelText{.parts = rect("beam", "2000 1 1", "2000 1 1"),
                                   .supports = clamp,
                                   .forces = "f area y 1 2000 2000 0 1 0 1"}));
        testing::expect_done(analyse(analyse_static));
        const double beam =
            std::pow(2000.0, 3) / (3 * 2e11 / 12);  // F L³ / 3 E I; full hexahedra are stiffer
        EXPECT_NEAR(displacement(2000, 0, 0)[1], 0.75 * beam, 0.25 * beam);
    }
}

TEST_F(Solver, CheckTellsWhatEachWayWouldCost) {
    ASSERT_TRUE(read(ModelText{.parts = rect("b", "1 1 1", "8 8 8"), .supports = "c plane z 0 0 0 0 0 0"}));
    testing::expect_done(analyse(analyse_static));
    EXPECT_EQ(check_model(model, settings, said).solver, "");
    for (const double megabytes : {4000.0, 1.0}) {
        run(analyse_static, "sparse", megabytes);
        const ModelCheck check = check_model(model, settings, said);
        EXPECT_EQ(check.solver, result.report.solver);
        const double written = list_factor_files(folder.file("log")).megabytes;
        EXPECT_NEAR(check.factor_megabytes, written, 1e-9);
        EXPECT_EQ(written > 0, megabytes == 1);
    }
    SilentProgress stopped;  // before its mesh is whole
    stopped.cancel();
    EXPECT_EQ(check_model(model, settings, stopped).factor_megabytes, 0);
}

}  // namespace
}  // namespace kestralum
