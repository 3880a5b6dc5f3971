// Supports in single directions, moving supports, springs, ties, loads, temperatures and load cases in the
// static, eigen and nonlinear analyses: against hand calculation, and against a second way to say the same.
#include <numbers>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/nonlinear/nonlinear_analysis.h"
#include "analysis/static/static_analysis.h"
#include "support/analysis_run.h"

namespace kestralum {
namespace {

using testing::every_kind;
using testing::Grid;
using testing::ModelText;
using testing::rect;
using testing::replaced;

constexpr double young = 2e11;

class SupportsAndLoads : public testing::AnalysisTest {
protected:
    // A bar of 1 × 0.2 × 0.1 turned about z by 30 degrees, with sets of its faces.
    std::string turned_bar(ElementKind kind, const std::string& supports, const std::string& more) {
        const double c = std::cos(std::numbers::pi / 6), s = 0.5;
        const auto at = [&](double x, double y, double z) {
            return formatted("%.17g %.17g %.17g", c * x - s * y, s * x + c * y, z);
        };
        std::string part = part_of(kind, Grid{{5, 2, 2}, {1, 0.2, 0.1}});
        part.replace(part.rfind("0 0 0"), 5, "30 0 0");
        const std::string sets = "set_info ROOT patch " + at(0, 0.1, 0.05) + " 5 TIP patch " +
                                 at(1, 0.1, 0.05) + " 5 SIDE patch " + at(0.5, 0, 0.05) + " 5 LOW patch " +
                                 at(0.5, 0.1, 0) + " 5 %\n";
        return ModelText{.parts = part, .supports = supports, .rigid = "% " + more, .others = sets};
    }
    double largest_difference_from(double stress) const {
        double worst = 0;
        const std::size_t dofs = result.mesh.dof_num();
        for (std::size_t n = 0; n < dofs / 3; ++n)
            worst = std::max(worst, std::abs(frame().node_stress[4 * dofs + 3 * n] - stress));
        return worst;
    }
    // The supports' forces balance the loads.
    void expect_balance(const RunReport& report) {
        double size = 0;
        for (const SupportReaction& s : report.supports)
            for (const double f : s.force) size += std::abs(f);
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(report.applied[c] + report.reaction[c], 0, 1e-10 * size);
    }
    std::string refused(const std::string& text) {
        model = placeholder_model();
        model.model_file_name = folder.write("model.txt", text);
        testing::Collected console;
        if (!read_input_file(model, {}, console).ok) return console.errors;
        const RunReport report = analyse(analyse_static);
        EXPECT_EQ(report.status, RunStatus::bad_input);
        return report.remarks.errors.empty() ? "" : report.remarks.errors.front();
    }
};

const std::string rollers = "A set ROOT fix=normal B set SIDE fix=normal C set LOW fix=z";

TEST_F(SupportsAndLoads, RollersOnSlantedFacesLeaveABarInPureTension) {
    for (const ElementKind kind : every_kind)
        for (const char* load : {"P pressure TIP -40e6", "P traction TIP 40e6*cos(asin(1)/3) 20e6 0",
                                 "P force TIP 8e5*cos(asin(1)/3) 4e5 0"}) {
            ASSERT_TRUE(read(turned_bar(kind, rollers, formatted("load_info %s %%", load))));
            const RunReport report = analyse(analyse_static);
            testing::expect_done(report);
            EXPECT_LT(largest_difference_from(40e6), 1e-8 * 40e6) << load;
            expect_balance(report);
            ASSERT_EQ(report.supports.size(), 3u);
            EXPECT_NEAR(report.supports[0].force[1], -8e5 * 0.5, 1e-4);
            const auto u = displacement(std::cos(std::numbers::pi / 6), 0.5, 0);
            EXPECT_NEAR(std::hypot(u[0], u[1]), 40e6 / young, 1e-6 * 40e6 / young);
        }
    EXPECT_NE(said.lines.find("partial_fix_num="), std::string::npos);
    EXPECT_NE(said.lines.find("fix_node_num=0\n"), std::string::npos);
}

TEST_F(SupportsAndLoads, MovedSupportsStretchAlikeInStaticAndNonlinear) {
    const std::string text =
        ModelText{.parts = rect("b", "1 0.2 0.1", "5 2 2"),
                  .supports =
                      "A plane x 0 0 0 0 0 0 fix=x B plane y 0 0 0 0 0 0 fix=y "
                      "C plane z 0 0 0 0 0 0 fix=z T plane x 1 1 0 0 0 0 ux=1e-7*(1+0*y)"};
    ASSERT_TRUE(read(text));
    RunReport report = analyse(analyse_static);
    testing::expect_done(report);
    EXPECT_LT(largest_difference_from(1e-7 * young), 1e-9 * young * 1e-7);
    EXPECT_NEAR(report.supports[3].force[0], 1e-7 * young * 0.02, 1e-9 * 1e-7 * young);
    EXPECT_NEAR(report.supports[0].force[0], -1e-7 * young * 0.02, 1e-9 * 1e-7 * young);
    model.mode_count = 2;
    settings.nl_conv = 1e-10;
    report = analyse(analyse_nonlinear);
    testing::expect_done(report);
    EXPECT_NEAR(report.supports[3].force[0], 1e-7 * young * 0.02, 1e-6 * 1e-7 * young);
    EXPECT_NEAR(report.nonlinear.increments[0].supports[3].force[0], 0.5e-7 * young * 0.02,
                1e-6 * 1e-7 * young);
}

TEST_F(SupportsAndLoads, SpringsCarryTheirShare) {
    // a stiff block on a bed of 1e8 N/m^3 over 0.5 m^2 under 1000 N sinks by 1000 / (1e8 · 0.5)
    ASSERT_TRUE(read(ModelText{.parts = rect("b", "1 0.5 0.1", "4 2 1"),
                               .supports = "BED plane z 0 0 0 0 0 0 spring=1e8*(1+0*x)",
                               .rigid = "% load_info W force TOP 0 0 -1000 %",
                               .others = "set_info TOP plane z 0.1 % "}))
        << said.errors;
    for (const auto& [analysis, steps] :
         {std::pair<Analyse, int>{analyse_static, 1}, std::pair<Analyse, int>{analyse_nonlinear, 2}}) {
        model.mode_count = steps;
        const RunReport report = analyse(analysis);
        testing::expect_done(report);
        EXPECT_NEAR(result.results.back()->mode_vec[3 * node_at(0.5, 0.25, 0) + 2], -2e-5, 1e-8);
        EXPECT_NEAR(report.supports[0].force[2], 1000, 1e-5);
        EXPECT_NEAR(report.supports[0].moment[0], 0, 1e-4);
    }
    // with springs all round it has no zero mode; on normal ones alone it slides and turns
    model.mode_count = 4;
    testing::expect_done(analyse(analyse_eigen_lanczos));
    EXPECT_GT(result.report.modes[0].frequency, 1);
    model.boundary_conditions[0].options.normal_spring = model.boundary_conditions[0].options.spring;
    model.boundary_conditions[0].options.spring = {};
    for (const Analyse method : {analyse_eigen_lanczos, analyse_eigen_subspace}) {
        testing::expect_done(analyse(method));
        EXPECT_TRUE(result.report.modes[2].zero && !result.report.modes[3].zero);
    }
}

TEST_F(SupportsAndLoads, TiesPassThePatchTestWhereMeshesNestAndTellWhereNot) {
    const std::string sets = "set_info LOW plane z 1 UNDER plane z 1 TOP plane z 2 %\n";
    const auto stack = [&](const std::string& upper_cells) {
        return std::string(ModelText{
            .parts = rect("a", "1 1 1", "2 2 2") + rect("b", "1 1 1", upper_cells, "0 0 1.001"),
            .supports = "X plane x 0 0 0 0 0 0 fix=x Y plane y 0 0 0 0 0 0 fix=y Z plane z 0 0 0 0 0 0 fix=z",
            .rigid = "% load_info P pressure TOP 1e8 % tie_info T B.FOOT A.ROOF tolerance=0.01 %",
            .others =
                "set_info A_ALL part a B_ALL part b ZONE plane z 1 tol=0.0005 FOOT_Z plane z 1.001 "
                "tol=0.0005 "
                "A.ROOF intersection A_ALL,ZONE B.FOOT intersection B_ALL,FOOT_Z TOP plane z 2.001 %\n"});
    };
    ASSERT_TRUE(read(stack("4 4 2")));  // every node of the finer face lies on the coarser one: exact
    testing::expect_done(analyse(analyse_static));
    EXPECT_LT(largest_difference_from(1e8), 1e-10 * 1e8);
    EXPECT_NE(said.lines.find("tied_node_num=25"), std::string::npos);
    model.mode_count = 1;
    testing::expect_done(analyse(analyse_nonlinear));
    EXPECT_LT(largest_difference_from(1e8), 3e-3 * 1e8);  // the section widens by ν p/E
    ASSERT_TRUE(read(stack("3 3 2")));
    testing::expect_done(analyse(analyse_static));
    const double off = largest_difference_from(1e8) / 1e8;
    std::printf("    unlike meshes, 3 on 2 cells: %.1f %% off\n", 100 * off);
    EXPECT_GT(off, 1e-6);
    EXPECT_LT(off, 0.3);
    expect_balance(result.report);
    model.ties[0].slave_set = model.ties[0].master_set;  // as a box about the gap takes both sides
    std::string notes;
    for (const std::string& note : analyse(analyse_static).remarks.notices) notes += note;
    EXPECT_TRUE(
        testing::contains(notes, "tie T: all nodes of A.ROOF are nodes of A.ROOF too: nothing is tied"))
        << notes;
}

TEST_F(SupportsAndLoads, HeatExpandsWhatIsFreeAndPressesWhatIsHeld) {
    for (const ElementKind kind : every_kind)
        for (const char* form : {"full", "enhanced", "mean-dilatation"}) {
            const std::string text = ModelText{
                .material = "7800 2e11 0.3 alpha=1e-5",
                .parts = part_of(kind, Grid{{4, 2, 2}, {1, 0.2, 0.1}}),
                .supports =
                    "A plane x 0 0 0 0 0 0 fix=x B plane y 0 0 0 0 0 0 fix=y C plane z 0 0 0 0 0 0 fix=z "
                    "H plane x 1 1 0 0 0 0 ux=0 case=none",
                .rigid =
                    formatted("%% load_info T temperature all 393 reference=293 %% hexahedra %s %%", form)};
            ASSERT_TRUE(read(replaced(text, " case=none", "")));
            const double held = young * 1e-5 * 100;
            testing::expect_done(analyse(analyse_static));
            EXPECT_LT(largest_difference_from(held), 1e-9 * held);
            expect_balance(result.report);
            model.mode_count = 1;
            testing::expect_done(analyse(analyse_nonlinear));
            EXPECT_LT(largest_difference_from(held), 5e-3 * held);
            model.boundary_conditions.pop_back();
            for (const Analyse analysis : {analyse_static, analyse_nonlinear}) {
                testing::expect_done(analyse(analysis));
                EXPECT_LT(largest_difference_from(0), 1e-9 * held);
                EXPECT_NEAR(displacement(1, 0, 0)[0], analysis == analyse_static ? 1e-3 : std::expm1(1e-3),
                            1e-12);
            }
        }
}

TEST_F(SupportsAndLoads, CasesAreTheRunsOfTheirLoadsAndCombinationsTheirSums) {
    const std::string body = ModelText{.parts = rect("b", "1 0.2 0.1", "6 2 2"),
                                       .supports = "C plane x 0 0 0 0 0 0",
                                       .forces = "F area z -100 1 1 0 0.2 0 0.1 case=down",
                                       .rigid =
                                           "% load_info G gravity 0 0 -9.81 P pressure SIDE 1e3 case=wind % "
                                           "load_combination SUM 1.5*base-2*wind+down %",
                                       .others = "set_info SIDE plane y 0 %\n"};
    ASSERT_TRUE(read(body));
    testing::expect_done(analyse(analyse_static));
    ASSERT_EQ(result.mode_num(), 4);
    EXPECT_EQ(result.report.factor_entries > 0, true);
    const kestralum::Run all = std::move(result);
    const char* names[] = {"base", "down", "wind", "SUM"};
    for (std::size_t k = 0; k < 4; ++k) {
        EXPECT_EQ(all.results[k]->name, names[k]);
        options.load_case = names[k];
        testing::expect_done(analyse(analyse_static));
        ASSERT_EQ(result.mode_num(), 1);
        testing::expect_equal(all.results[k]->mode_vec, frame().mode_vec, 1e-12);
        testing::expect_equal(all.results[k]->node_stress, frame().node_stress, 1e-11);
    }
    std::vector<double> sum(all.mesh.dof_num());
    for (std::size_t d = 0; d < sum.size(); ++d)
        sum[d] =
            1.5 * all.results[0]->mode_vec[d] + all.results[1]->mode_vec[d] - 2 * all.results[2]->mode_vec[d];
    testing::expect_equal(sum, all.results[3]->mode_vec, 1e-12);
    options.load_case = "hail";
    EXPECT_EQ(analyse(analyse_static).status, RunStatus::bad_input);
}

TEST_F(SupportsAndLoads, HalfABodyOnItsSymmetryPlaneIsTheWholeOne) {
    // a rigid end that the plane cuts through: its motions are those of the plane
    const auto cantilever = [](const std::string& size, const std::string& cells, const std::string& more,
                               const std::string& force) {
        return std::string(ModelText{.parts = rect("b", size, cells),
                                     .supports = "C plane x 0 0 0 0 0 0" + more,
                                     .rigid = "E area 1.2 0 0.05 1 1 0 1 0 1 % rigid_force F E z " + force +
                                              " M E ry 2*" + force + " %"});
    };
    ASSERT_TRUE(read(cantilever("1 0.2 0.1", "8 4 2", "", "-1000")));
    model.mode_count = 1;
    for (const Analyse analysis : {analyse_static, analyse_nonlinear}) {
        ASSERT_TRUE(read(cantilever("1 0.2 0.1", "8 4 2", "", "-1000")));
        model.mode_count = 1;
        testing::expect_done(analyse(analysis));
        const auto whole = displacement(1, 0.1, 0);
        ASSERT_TRUE(read(cantilever("1 0.1 0.1", "8 2 2", " S plane y 0.1 0.1 0.1 0.1 0 0 fix=y", "-500")));
        model.mode_count = 1;
        const RunReport report = analyse(analysis);
        testing::expect_done(report);
        const auto half = displacement(1, 0.1, 0);
        for (std::size_t c = 0; c < 3; c += 2) EXPECT_NEAR(half[c], whole[c], 1e-6 * std::abs(whole[2]));
        EXPECT_NEAR(half[1], 0, 1e-12);
        EXPECT_NEAR(report.supports[0].force[2], 500, 1e-4);
    }
}

TEST_F(SupportsAndLoads, ModesOnRollersDoNotKnowHowTheBodyIsTurned) {
    ASSERT_TRUE(read(
        turned_bar(ElementKind::hexahedron, "A set ROOT fix=normal C set LOW fix=normal", "mode_num 6 %")));
    for (const Analyse method : {analyse_eigen_lanczos, analyse_eigen_subspace}) {
        testing::expect_done(analyse(method));
        const std::vector<ModeReport> slanted = result.report.modes;
        EXPECT_TRUE(slanted[0].zero && !slanted[1].zero);  // it slides along y of its own
        const Model kept = model;
        ASSERT_TRUE(read(ModelText{.parts = rect("b", "1 0.2 0.1", "5 2 2"),
                                   .supports = "A plane x 0 0 0 0 0 0 fix=x C plane z 0 0 0 0 0 0 fix=z",
                                   .others = "mode_num 6 %\n"}));
        testing::expect_done(analyse(method));
        for (std::size_t m = 1; m < 6; ++m)
            EXPECT_NEAR(slanted[m].frequency, result.report.modes[m].frequency, 1e-6 * slanted[m].frequency);
        model = kept;
    }
}

TEST_F(SupportsAndLoads, AFollowingPressureBendsAndAHalvedIncrementArrives) {
    // pressure on the upper side of a slender cantilever: at large bends it stays normal to the side
    const std::string text =
        ModelText{.parts = rect("b", "1 0.05 0.02", "20 1 1"),
                  .supports = "C plane x 0 0 0 0 0 0",
                  .rigid = "% load_info P pressure TOP 2e5 % hexahedra enhanced % step_num 5 %",
                  .others = "set_info TOP plane z 0.02 %\n"};
    ASSERT_TRUE(read(text));
    RunReport report = analyse(analyse_nonlinear);
    testing::expect_done(report);
    // its stiffness is made symmetric, which on a side with free edges is not its derivative to the last
    for (const IncrementReport& increment : report.nonlinear.increments) EXPECT_LE(increment.iterations, 8);
    EXPECT_LT(result.results.back()->mode_vec[3 * node_at(1, 0, 0)], -0.01);  // the tip has come back
    EXPECT_GT(std::abs(report.applied[0]), 1000);  // a dead load would have none along the bar
    for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(report.applied[c] + report.reaction[c], 0, 1e-4);
    model.mode_count = 1;
    model.iteration_limit = 7;
    EXPECT_EQ(analyse(analyse_nonlinear).status, RunStatus::failed);
    model.control.nl_halving = 5;
    report = analyse(analyse_nonlinear);
    testing::expect_done(report);
    EXPECT_GT(report.nonlinear.increments.size(), 1u);
    EXPECT_EQ(report.nonlinear.increments.back().factor, 1);
}

TEST_F(SupportsAndLoads, ContradictionsAreToldInOneLine) {
    const std::string block = rect("b", "1 1 1", "2 2 2");
    const struct {
        std::string supports, more, line;
    } cases[] = {
        {"A plane x 0 0 0 0 0 0 ux=1 B plane x 0 0 0 0 0 0 ux=2 C plane x 1 1 0 0 0 0", "",
         "support B: at (0, 0, 0) it wants another displacement than an earlier support"},
        {"A plane x 0 0 0 0 0 0 B plane x 0 0 0 0 0 0 uy=1e-3", "",
         "has a displacement where another support holds"},
        {"A plane x 0 0 0 0 0 0 ux=1/x", "", "support A: '1/x' is inf at (0, 0, 0) m"},
        {"A volume x 0.4 0.6 0.4 0.6 0.4 0.6 fix=normal", "", "no face has all its nodes in the support"},
        {"A plane x 0 0 0 0 0 0 spring=x-1", "", "support A: 'x-1' is -1"},
        {"A plane x 0 0 0 0 0 0", "load_info P pressure S 1/(x-1) %", "not a finite number"},
        {"A plane x 0 0 0 0 0 0", "load_info P bearing S 0 0 1 %", "load P: "},
        {"A plane x 0 0 0 0 0 0", "load_info P pressure S 1 factor=1/(time-1) %",
         "a factor is a finite number"},
        {"A plane x 0 0 0 0 0 0 fix=x B plane x 0 0 0 0 0 0", "tie_info T S R tolerance=0.1 %",
         "tie T: no node of S"},
    };
    for (const auto& c : cases) {
        const std::string text = ModelText{.parts = block,
                                           .supports = c.supports,
                                           .rigid = "% " + c.more,
                                           .others = "set_info S plane x 1 R plane x 0 %\n"};
        EXPECT_NE(refused(text).find(c.line), std::string::npos) << c.line << "\n" << refused(text);
    }
}

}  // namespace
}  // namespace kestralum
