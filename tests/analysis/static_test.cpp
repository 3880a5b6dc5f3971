// Whole static analyses from a model file against theory and published values.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <utility>

#include "analysis/static/static_analysis.h"
#include "results/result_file.h"
#include "support/analysis_run.h"
#include "system/model_check.h"

namespace kestralum {
namespace {

using testing::ModelText;
using testing::rect;
using testing::replaced;
constexpr auto tetra10 = ElementKind::tetrahedron10;

class StaticAnalysis : public testing::AnalysisTest {
protected:
    RunReport run(const std::string& text) { return read(text) ? analyse(analyse_static) : RunReport{}; }
    // Done, with these forces applied and carried by the supports.
    void run_balanced(const std::string& text, std::array<double, 3> applied) {
        const RunReport report = run(text);
        testing::expect_done(report);
        const double size = std::abs(applied[0]) + std::abs(applied[1]) + std::abs(applied[2]);
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_NEAR(report.applied[c], applied[c], 1e-9 * size);
            EXPECT_NEAR(report.reaction[c], -applied[c], 1e-6 * size);
        }
    }
};

// MacNeal and Harder (1985), straight cantilever 6 × 0.2 × 0.1, E = 1e7, ν = 0.3, unit forces at
// the end: tip displacements 3.0e-5 (extension), 0.1081 (in plane), 0.4321 (out of plane). The solid
// clamp holds Poisson's contraction too: half a percent stiffer than the beam. Fully integrated
// hexahedra lock in bending; fine ones are asked for extension and in-plane bending.
TEST_F(StaticAnalysis, MacNealHarderStraightBeam) {
    const double reference[3] = {3.0e-5, 0.1081, 0.4321};
    const struct {
        const char* what;
        std::string part;
        int axes;
    } cases[] = {{"MacNeal-Harder, tetrahedra", part_of(tetra10, {{30, 2, 2}, {6, 0.2, 0.1}}), 3},
                 {"MacNeal-Harder, hexahedra", rect("b", "6 0.2 0.1", "240 12 8"), 2}};
    for (const auto& c : cases)
        for (int axis = 0; axis < c.axes; ++axis) {
            std::array<double, 3> applied{};
            applied[axis] = 1;
            run_balanced(ModelText{.material = "1 1e7 0.3",
                                   .parts = c.part,
                                   .supports = "clamp plane x 0 0 0 0 0 0",
                                   .forces = std::string("unit area ") + "xyz"[axis] + " 1 6 6 0 0.2 0 0.1"},
                         applied);
            expect_figure(c.what, displacement(6, 0.1, 0.05)[axis], reference[axis], 0.01);
        }
}

TEST_F(StaticAnalysis, AFreeBodyIsNamedAndStillWritesItsFile) {
    const std::string block = rect("a", "1 1 1", "2 2 2");
    const ModelText cases[] = {
        {.parts = block},
        {.parts = block, .supports = "point volume x -0.001 0.001 -0.001 0.001 -0.001 0.001"},
        {.parts = block + rect("b", "1 1 1", "2 2 2", "3 0 0"), .supports = "c plane x 0 0 0 0 0 0"}};
    for (const ModelText& text : cases) {
        const RunReport report = run(text);
        EXPECT_EQ(report.status, RunStatus::failed);
        ASSERT_EQ(report.remarks.errors.size(), 1u);
        double x = 0;  // the place named lies in the loose body
        const char* expected = "the body is free: the supports do not hold node %*d at (%lf";
        EXPECT_EQ(std::sscanf(report.remarks.errors[0].c_str(), expected, &x), 1) << report.remarks.errors[0];
        EXPECT_GE(x, &text == &cases[2] ? 3 : 0);
        EXPECT_TRUE(std::filesystem::remove(log("result_model.txt")));
    }
}

TEST_F(StaticAnalysis, PartsThatTouchWithoutBeingJoinedAreNamedBefore) {
    ASSERT_TRUE(
        read(ModelText{.parts = rect("LEFT", "1 1 1", "2 2 2") + rect("RIGHT", "1 1 1", "3 3 3", "1 0 0"),
                       .supports = "c plane x 0 0 0 0 0 0"}));
    const ModelCheck check = check_model(model, settings, said);
    EXPECT_EQ(check.bodies.size(), 1u) << "connected at the four corners";
    EXPECT_EQ(check.hanging_nodes, 0);
    EXPECT_TRUE(testing::contains(
        check.remarks.notices, "parts LEFT and RIGHT touch without being joined: 5 nodes of the one and 12"));
}

const std::string small_model = ModelText{.parts = rect("b", "0.3 0.2 1", "3 2 24"),
                                          .supports = "c plane z 0 0 0 0 0 0",
                                          .forces = "f area x 1000 0 0.3 0 0.2 1 1"};

// Overwrites the factor's files as soon as the run begins to solve with them.
class Saboteur : public testing::Collected {
public:
    explicit Saboteur(std::filesystem::path folder) : folder_(std::move(folder)) {}
    bool cancelled() const override {
        if (place().stage == "solve" && !std::exchange(done_, true))
            for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
                if (entry.path().filename().string().find("temp_") == std::string::npos) continue;
                std::fstream file(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
                const auto bytes = static_cast<std::size_t>(std::filesystem::file_size(entry.path()));
                file.seekp(static_cast<std::streamoff>(bytes / 3));
                file << std::string(bytes / 3, '\0');
                ++overwritten;
            }
        return false;
    }
    mutable int overwritten = 0;

private:
    std::filesystem::path folder_;
    mutable bool done_ = false;
};

TEST_F(StaticAnalysis, AFactorFileThatWasAlteredGivesNoResult) {
    settings.memory_size = 1;
    options.log_folder = folder.file("log");
    for (const char* solver : {"skyline", "sparse"}) {
        settings.solver = solver;
        ASSERT_TRUE(read(ModelText{.parts = rect("b", "0.1 0.1 0.4", "6 6 24"),
                                   .supports = "C plane z 0 0 0 0 0 0",
                                   .forces = "P area x 1000 0 0.1 0 0.1 0.4 0.4"}));
        Saboteur sabotage(folder.path() / "log");
        const RunReport report = analyse_static(model, settings, options, sabotage).report;
        ASSERT_GT(sabotage.overwritten, 0);
        EXPECT_EQ(report.status, RunStatus::failed);
        EXPECT_FALSE(report.has_results());
        EXPECT_TRUE(testing::contains(report.remarks.errors, "without balance") ||
                    testing::contains(report.remarks.errors, "not finite"))
            << report.remarks.errors.size();
    }
}

TEST_F(StaticAnalysis, EndsWithoutATornFileWhereItCannotGoOn) {
    folder.write("log/result_model.txt", "an earlier run's");
    settings.free_hd_size = 1e-3;
    EXPECT_EQ(run(small_model).status, RunStatus::disk_budget);
    settings = testing::analysis_settings();
    const RunReport infinite = run(replaced(small_model, "1000", "1e300"));
    EXPECT_EQ(infinite.status, RunStatus::failed);
    EXPECT_FALSE(infinite.has_results());
    EXPECT_EQ(run("material_info M 1 1 0 % END\n").status, RunStatus::bad_input) << "no elements";
    // an inverted element stops the analysis with element, part and place
    ASSERT_TRUE(read(small_model));
    std::swap(model.mesh.connectivity[8 * 20], model.mesh.connectivity[8 * 20 + 6]);
    const RunReport report = analyse(analyse_static);
    EXPECT_EQ(report.status, RunStatus::failed);
    EXPECT_TRUE(testing::contains(report.remarks.errors, "element 21 of part b at ("));
    EXPECT_EQ(check_model(model, settings, said).bad.at(0).element, 20);
    EXPECT_EQ(file("result_model.txt"), "an earlier run's");
    EXPECT_FALSE(std::filesystem::exists(log("result_model.txt.part")));
}

}  // namespace
}  // namespace kestralum
