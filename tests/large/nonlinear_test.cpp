// The nonlinear static analysis on several ranks against that of one process.
#include <sstream>

#include "analysis/nonlinear/increments.h"
#include "input/analysis_info_reader.h"
#include "large/solver.h"
#include "large_run.h"
#include "model/paths.h"
#include "results/result_file.h"
#include "solver/memory_limits.h"

namespace kestralum::testing {
namespace {

class LargeNonlinear : public LargeTest {
protected:
    void SetUp() override {
        LargeTest::SetUp();
        settings.nl_conv = 1e-9;
    }

    // spare: iterations that an increment may differ by
    void expect_increments(const kestralum::Run& large, const kestralum::Run& alone, int spare) {
        const auto &got = large.report.nonlinear.increments, &exact = alone.report.nonlinear.increments;
        ASSERT_EQ(got.size(), exact.size());
        for (std::size_t k = 0; k < exact.size(); ++k) {
            EXPECT_EQ(got[k].factor, exact[k].factor);
            EXPECT_EQ(got[k].converged, exact[k].converged);
            EXPECT_LE(std::abs(got[k].iterations - exact[k].iterations), spare) << k;
            EXPECT_EQ(got[k].negative_pivots, exact[k].negative_pivots) << k;
            EXPECT_NEAR(got[k].plastic_share, exact[k].plastic_share, 1e-12);
            EXPECT_NEAR(got[k].work, exact[k].work, 1e-7 * std::abs(exact[k].work));
            EXPECT_NEAR(got[k].largest_displacement, exact[k].largest_displacement,
                        1e-7 * exact[k].largest_displacement);
            ASSERT_EQ(got[k].supports.size(), exact[k].supports.size());
            double size = 0;
            for (const SupportReaction& support : exact[k].supports)
                for (const double f : support.force) size = std::max(size, std::abs(f));
            for (std::size_t s = 0; s < exact[k].supports.size(); ++s)
                for (std::size_t c = 0; c < 3; ++c)
                    EXPECT_NEAR(got[k].supports[s].force[c], exact[k].supports[s].force[c], 1e-6 * size);
        }
    }

    void expect_frame(const Frame& got, const Frame& exact) {
        EXPECT_EQ(got.n_freq, exact.n_freq);
        const std::size_t dofs = exact.mode_vec.size();
        expect_equal(got.mode_vec, exact.mode_vec, 1e-7);
        expect_equal(got.reaction, exact.reaction, 1e-6);
        ASSERT_EQ(got.node_stress.size(), exact.node_stress.size());
        for (const std::size_t first : {std::size_t(0), 2 * dofs})
            expect_equal(got.node_stress, exact.node_stress, 1e-6, first, 2 * dofs);
        double mises = 0;
        for (std::size_t at = 4 * dofs; at < exact.node_stress.size(); at += 3)
            mises = std::max(mises, exact.node_stress[at]);
        for (std::size_t at = 4 * dofs; at < exact.node_stress.size(); at += 3) {
            ASSERT_NEAR(got.node_stress[at], exact.node_stress[at], 1e-6 * mises);
            ASSERT_NEAR(got.node_stress[at + 1], exact.node_stress[at + 1], 1e-9);  // plastic strain
            ASSERT_NEAR(got.node_stress[at + 2], exact.node_stress[at + 2], 1e-6 * mises);
        }
        ASSERT_EQ(got.element_stress.size(), exact.element_stress.size());
        ASSERT_EQ(got.element_plastic.size(), exact.element_plastic.size());
        expect_equal(got.element_stress, exact.element_stress, 1e-6);
        expect_equal(got.element_strain, exact.element_strain, 1e-6);
        for (std::size_t e = 0; e < exact.element_plastic.size(); ++e)
            ASSERT_NEAR(got.element_plastic[e], exact.element_plastic[e], 1e-7);
    }

    // Numbers of a log, one or more in a line; "[element][point]:" before one is put behind `places`.
    static std::vector<double> numbers(const std::string& folder_name, const std::string& name,
                                       std::string& places) {
        std::istringstream text(read_file(paths::to_platform(name, folder_name)));
        std::vector<double> out;
        for (std::string token; text >> token;) {
            const std::size_t colon = token.find(':');
            if (colon != std::string::npos) places += token.substr(0, colon + 1);
            out.push_back(std::stod(colon == std::string::npos ? token : token.substr(colon + 1)));
        }
        return out;
    }

    // Equation by equation and point by point; the hardest elements are chosen among equals by rounding.
    // size: of the forces, N; where nothing is loaded the equations carry rounding alone.
    void expect_logs(double size) {
        const std::string own = folder.file("alone");
        for (const char* log : {"log\\Q.txt", "log\\integ_stress.txt"}) {
            std::string places, exact_places;
            const std::vector<double> got = numbers(log_folder, log, places),
                                      exact = numbers(own, log, exact_places);
            ASSERT_FALSE(exact.empty());
            ASSERT_EQ(got.size(), exact.size());
            double largest = log[4] == 'Q' ? size : 0;
            for (const double v : exact) largest = std::max(largest, std::abs(v));
            for (std::size_t k = 0; places == exact_places && k < exact.size(); ++k)
                ASSERT_NEAR(got[k], exact[k], 1e-6 * largest) << log << ' ' << k;
            EXPECT_TRUE(places == exact_places || model.mesh.element_num() > 100);
        }
    }

    void expect_as_alone(int spare = 0, const std::string& solver = "auto") {
        const kestralum::Run large = run_large("nonlinear", solver), alone = run_alone("nonlinear");
        ASSERT_EQ(alone.report.status, RunStatus::done) << joined(alone.report.remarks.errors);
        ASSERT_EQ(large.report.status, RunStatus::done) << joined(large.report.remarks.errors);
        EXPECT_EQ(large.report.free_dofs, alone.report.free_dofs);
        EXPECT_NEAR(large.report.largest_mises.value, alone.report.largest_mises.value,
                    1e-6 * alone.report.largest_mises.value);
        expect_increments(large, alone, spare);
        if (!team.first()) {
            EXPECT_TRUE(large.results.empty());
            return;
        }
        EXPECT_TRUE(large.report.written);
        ASSERT_EQ(large.results.size(), alone.results.size());
        for (std::size_t k = 0; k < alone.results.size(); ++k)
            expect_frame(*large.results[k], *alone.results[k]);
        double size = 0;
        for (const SupportReaction& support : alone.report.supports)
            for (const double f : support.force) size = std::max(size, std::abs(f));
        expect_logs(size);
        EXPECT_EQ(large.history.columns, alone.history.columns);
        EXPECT_EQ(large.history.values.size(), alone.history.values.size());
    }
};

struct Shipped {
    const char* file;
    std::vector<ParameterOverride> set;
    std::vector<double> factors;
    // A point that an increment starts from on its yield surface is elastic or plastic in the first tangent
    // as rounding has it: an iteration more or less.
    int spare = 0;
    double tolerance = 1e-9;
};

class LargeNonlinearShipped : public LargeNonlinear, public ::testing::WithParamInterface<Shipped> {};

TEST_P(LargeNonlinearShipped, AgreesWithOneProcess) {
    ASSERT_TRUE(read_shipped(GetParam().file, GetParam().set));
    ASSERT_NE(read_analysis_info_file(model, said).status, AnalysisInfoStatus::wrong);
    options.factors = GetParam().factors;
    settings.nl_conv = GetParam().tolerance;
    expect_as_alone(GetParam().spare);
    if (!model.rigid_elements.empty()) expect_as_alone(GetParam().spare, "iterative");
}

INSTANTIATE_TEST_SUITE_P(
    Of, LargeNonlinearShipped,
    ::testing::Values(
        Shipped{"verify/plastic/cantilever_tet4_coarse.txt", {}, {0.9, 1}, 1},
        Shipped{"verify/plastic/cantilever_hex.txt", {{"nh", "2"}, {"nl", "10"}}, {0.8, 1.1}, 1},
        Shipped{"verify/loads/follower_hex.txt", {{"ny", "2"}, {"nz", "20"}}, {0.1, 0.2}, 0, 1e-6},
        Shipped{"verify/bodies/rigid_joint.txt", {{"nz", "3"}, {"kr", "100"}}, {0.5, 1}},
        Shipped{"verify/loads/tied_unlike_hex.txt", {}, {1, 20}},
        Shipped{"verify/loads/spring_bed_hex.txt", {}, {1}}),
    [](const auto& of) {
        const std::string name = of.param.file;
        return name.substr(name.rfind('/') + 1, name.rfind('.') - name.rfind('/') - 1);
    });

// Stretched to twice its length by its end, which also goes sideways.
TEST_F(LargeNonlinear, ASupportMovesFar) {
    ASSERT_TRUE(
        read(ModelText{.material = "1000 1e7 0.3",
                       .parts = rect("A", "1 1 2", "3 3 6"),
                       .supports = "LOW plane z 0 0 0 0 0 0 TOP plane z 0 0 0 0 2 2 ux=0.5 uy=0 uz=2"}));
    options.factors = {0.5, 1};
    expect_as_alone();
}

// Heat that both ends hold back, and one that it grows under.
TEST_F(LargeNonlinear, HeatMeetsWhatHoldsIt) {
    ASSERT_TRUE(read("hexahedra enhanced % material_info M 1000 1e9 0.3 alpha=1e-4 % part_info " +
                     rect("A", "1 1 3", "3 3 8") +
                     "% set_info SIDE plane x 1 % boundary_condition LOW plane z 0 0 0 0 0 0 TOP plane z 0 0 "
                     "0 0 3 3 % load_info H temperature all 100*(1+x) P pressure SIDE 1e6 % END\n"));
    options.factors = {0.5, 1};
    expect_as_alone();
}

// A square column, perfect but for rounding, beyond its Euler load: one direction of negative energy across
// each side, which its load does not touch. Newton stays on the straight branch.
TEST_F(LargeNonlinear, NegativePivotsBeyondTheEulerLoadAreCounted) {
    const double E = 1e9, L = 10, I = 1.0 / 12, euler = M_PI * M_PI * E * I / (4 * L * L);
    ASSERT_TRUE(
        read("hexahedra enhanced % material_info M 1000 1e9 0 % part_info " + rect("A", "1 1 10", "2 2 8") +
             "% set_info TOP plane z 10 % boundary_condition LOW plane z 0 0 0 0 0 0 % load_info P force "
             "TOP 0 0 " +
             formatted("%.17g", -euler) + " % END\n"));
    options.factors = {0.8, 1.2};
    for (const char* solver : {"auto", "sparse"}) {
        expect_as_alone(0, solver);
        const kestralum::Run large = run_large("nonlinear", solver);
        ASSERT_EQ(large.report.nonlinear.increments.size(), 2u);
        EXPECT_EQ(large.report.nonlinear.increments[0].negative_pivots, 0);
        EXPECT_EQ(large.report.nonlinear.increments[1].negative_pivots, 2);
        EXPECT_EQ(large.report.negative_pivots, 2);
    }
}

// Two chains of springs that do not touch; the second one stands on softer than nothing, so that one of its
// eigenvalues 2 - 2 cos(kπ/(n + 1)) - 0.02 is below zero, and has no load.
TEST_F(LargeNonlinear, ATrialLoadMeetsWhatTheLoadsDoNotTouch) {
    constexpr PetscInt n = 30;
    PetscMat matrix;
    must(MatCreateAIJ(team.comm(), PETSC_DECIDE, PETSC_DECIDE, 2 * n, 2 * n, 3, nullptr, 2, nullptr,
                      matrix.reset()));
    PetscInt first = 0, last = 0;
    must(MatGetOwnershipRange(matrix, &first, &last));
    std::vector<double> x;
    for (PetscInt row = first; row < last; ++row) {
        must(MatSetValue(matrix, row, row, row < n ? 2 : 1.98, INSERT_VALUES));
        for (const PetscInt next : {row - 1, row + 1})
            if (next >= 0 && next < 2 * n && next / n == row / n)
                must(MatSetValue(matrix, row, next, -1, INSERT_VALUES));
        x.push_back(row < n ? 1 : 0);
    }
    must(MatAssemblyBegin(matrix, MAT_FINAL_ASSEMBLY));
    must(MatAssemblyEnd(matrix, MAT_FINAL_ASSEMBLY));
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 1", "1 1 1")}));
    kestralum::Run run;
    Job job{model, settings, options, said, run};
    LargeSolver solver(team, job, LargeMethod::multigrid, 1e-10);
    ASSERT_TRUE(solver.set_up(matrix));
    ASSERT_TRUE(solver.solve(x));
    for (PetscInt row = first; row < last; ++row)  // the parabola of an even load
        EXPECT_NEAR(x[row - first], row < n ? 0.5 * (row + 1.0) * (n - row) : 0, 1e-6);
    EXPECT_EQ(solver.method(), LargeMethod::multigrid);
    ASSERT_TRUE(solver.look_for_negative());
    EXPECT_EQ(solver.method(), LargeMethod::direct);
    EXPECT_EQ(solver.negative_pivots(), 1);
}

// What ends a run of one process ends that of many with the same words, and the frames before it stand.
TEST_F(LargeNonlinear, EndsAsOneProcessDoes) {
    const std::string held = "S plane z 0 0 0 0 0 0", block = rect("A", "1 1 2", "2 2 4");
    const auto expect_same_end = [&] {
        const kestralum::Run large = run_large("nonlinear"), alone = run_alone("nonlinear");
        EXPECT_EQ(large.report.status, alone.report.status);
        EXPECT_EQ(large.report.remarks.errors, alone.report.remarks.errors);
        EXPECT_EQ(large.report.nonlinear.increments.size(), alone.report.nonlinear.increments.size());
        if (team.first()) {
            EXPECT_EQ(large.results.size(), alone.results.size());
        }
        return alone;
    };
    // pushed through itself
    ASSERT_TRUE(read(ModelText{
        .material = "1000 1e7 0.3", .parts = block, .supports = held + " TOP plane z 0 0 0 0 2 2 uz=-4"}));
    options.factors = {0.1, 1};
    const kestralum::Run inverted = expect_same_end();
    ASSERT_EQ(inverted.report.remarks.errors.size(), 1u);
    EXPECT_NE(inverted.report.remarks.errors[0].find("is inverted"), std::string::npos)
        << inverted.report.remarks.errors[0];
    EXPECT_EQ(inverted.results.size(), 1u);
    // no balance in so few iterations but along halves of the way, or not at all
    ASSERT_TRUE(read(ModelText{
        .material = "1000 1e7 0.3", .parts = block, .supports = held, .forces = "P area x 5e5 0 1 0 1 2 2"}));
    model.iteration_limit = 4;
    model.control.nl_halving = 3;
    options.factors = {1};
    settings.nl_conv = 1e-6;
    const kestralum::Run halved = expect_same_end();
    EXPECT_EQ(halved.report.status, RunStatus::done);
    EXPECT_GT(halved.report.nonlinear.increments.size(), 1u);
    model.control.nl_halving = 0;
    model.iteration_limit = 1;
    options.factors = {0.5, 1};
    for (const int go_on : {0, 1}) {
        settings.nl_static = go_on;
        const kestralum::Run alone = run_alone("nonlinear"), large = run_large("nonlinear");
        EXPECT_EQ(large.report.status, alone.report.status);
        EXPECT_EQ(large.report.nonlinear.increments.size(), alone.report.nonlinear.increments.size());
        EXPECT_EQ(large.report.nonlinear.increments.size(), go_on ? 2u : 1u);
    }
}

TEST_F(LargeNonlinear, AFreeBodyIsRefused) {
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 1", "3 3 3"), .forces = "P area z 1000 0 1 0 1 1 1"}));
    const kestralum::Run loose = run_large("nonlinear");
    EXPECT_EQ(loose.report.status, RunStatus::failed);
    ASSERT_EQ(loose.report.remarks.errors.size(), 1u);
    EXPECT_NE(loose.report.remarks.errors[0].find("the body is free"), std::string::npos);
    const kestralum::Run pieces = run_large("nonlinear", "auto", true);
    EXPECT_EQ(pieces.report.remarks.errors, loose.report.remarks.errors);
    // a rigid body of all nodes, some of which are held: no equation is left
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 1", "3 3 3"),
                               .supports = "S plane z 0 0 0 0 0 0",
                               .rigid = "R area 0.5 0.5 0.5 0 1 0 1 0 1 %"}));
    const kestralum::Run stiff = run_large("nonlinear");
    EXPECT_EQ(stiff.report.status, RunStatus::failed);
    EXPECT_EQ(stiff.report.remarks.errors, run_alone("nonlinear").report.remarks.errors);
    MPI_Barrier(team.comm());
    EXPECT_TRUE(std::filesystem::is_empty(log_folder));
}

// The pieces of every increment, read back, are the frames of one process; nothing of them is gathered.
TEST_F(LargeNonlinear, PiecesOfEveryIncrementAreTheFramesOfOneProcess) {
    for (const Shipped& shipped :
         {Shipped{"verify/plastic/cantilever_tet4_coarse.txt", {}, {0.9, 1}, 1},
          Shipped{"verify/bodies/rigid_joint.txt", {{"nz", "3"}, {"kr", "100"}}, {0.5, 1}}}) {
        SCOPED_TRACE(shipped.file);
        ASSERT_TRUE(read_shipped(shipped.file, shipped.set));
        ASSERT_NE(read_analysis_info_file(model, said).status, AnalysisInfoStatus::wrong);
        options.factors = shipped.factors;
        const kestralum::Run large = run_large("nonlinear", "auto", true), alone = run_alone("nonlinear");
        ASSERT_EQ(large.report.status, RunStatus::done) << joined(large.report.remarks.errors);
        expect_increments(large, alone, shipped.spare);
        EXPECT_EQ(large.report.listed_frames, 2);
        EXPECT_FALSE(large.report.written);
        EXPECT_NEAR(large.report.largest_mises.value, alone.report.largest_mises.value,
                    1e-6 * alone.report.largest_mises.value);
        EXPECT_NEAR(large.report.largest_displacement.value, alone.report.largest_displacement.value,
                    1e-7 * alone.report.largest_displacement.value);
        if (!team.first()) continue;
        for (const auto& frame : large.results)
            EXPECT_TRUE(frame->mode_vec.empty() && frame->node_stress.empty());
        const auto exists = [&](const std::string& name) {
            return std::filesystem::exists(paths::to_platform(name, log_folder));
        };
        EXPECT_FALSE(exists(result_file_name(model.model_file_name)) || exists("log\\integ_stress.txt"));
        EXPECT_TRUE(exists("log\\Q.txt") && large.report.nonlinear.history_written);
        const auto back = read_series();
        ASSERT_TRUE(back);
        EXPECT_EQ(back->run.ana_type, AnalysisType::nonlinear_static);
        EXPECT_EQ(back->run.mesh.coordinates, alone.mesh.coordinates);
        EXPECT_EQ(back->run.mesh.element_num(), alone.mesh.element_num());
        ASSERT_EQ(back->run.results.size(), alone.results.size());
        for (std::size_t k = 0; k < alone.results.size(); ++k)
            expect_fields(*back->run.results[k], *alone.results[k], 1e-7, 1e-6, 1e-9);
    }
}

TEST_F(LargeNonlinear, APieceThatCannotBeWrittenEndsAllRanksWithOneLine) {
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 2", "3 3 6"),
                               .supports = "S plane z 0 0 0 0 0 0",
                               .forces = "P area x 1e4 0 1 0 1 2 2"}));
    options.factors = {0.3, 0.6, 1};
    expect_end_at_second_frame("nonlinear");
}

// 15 kB an increment of 192 degrees of freedom and 27 elements, 1.5 kB where frames are not kept.
TEST_F(LargeNonlinear, FramesInPiecesAreNotCountedAsMemory) {
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 1", "3 3 3"), .supports = "S plane z 0 0 0 0 0 0"}));
    model.mode_count = static_cast<std::int32_t>(machine_megabytes() / 5e-3);
    kestralum::Run run;
    Job job{model, settings, options, said, run};
    EXPECT_TRUE(check_nonlinear(job, false)) << joined(run.report.remarks.errors);
    EXPECT_FALSE(check_nonlinear(job));
}

// Asks to stop when the second increment is under way.
class StopsInTheSecond : public Collected {
public:
    bool cancelled() const override { return course().text.starts_with("increment 2"); }
};

TEST_F(LargeNonlinear, AStopOnOneRankStopsAllAndLeavesTheEarlierResult) {
    ASSERT_TRUE(read(ModelText{.material = "1000 1e7 0.3",
                               .parts = rect("A", "1 1 2", "3 3 6"),
                               .supports = "S plane z 0 0 0 0 0 0",
                               .forces = "P area x 1e4 0 1 0 1 2 2"}));
    options.factors = {0.5, 1};
    ASSERT_EQ(run_large("nonlinear").report.status, RunStatus::done);
    StopsInTheSecond stops;
    expect_stop("nonlinear", stops);
    // of pieces what was reached is listed
    Collected goes_on;  // the first run has stopped `said` too
    LargeOptions large{.run = options, .pieces = true};
    large.run.log_folder = log_folder;
    StopsInTheSecond again;
    Progress& here = team.rank() == team.size() - 1 ? static_cast<Progress&>(again) : goes_on;
    const kestralum::Run run = analyse_large(team, "nonlinear", model, settings, large, here);
    EXPECT_EQ(run.report.status, RunStatus::cancelled);
    EXPECT_EQ(run.report.listed_frames, 1);
    if (!team.first()) return;
    const auto back = read_series();
    ASSERT_TRUE(back);
    ASSERT_EQ(back->run.results.size(), 1u);
    EXPECT_EQ(back->run.results[0]->n_freq, 0.5);
}

}  // namespace
}  // namespace kestralum::testing
