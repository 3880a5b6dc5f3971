// What a run says of its mesh: the estimated error against the true one, and the notes.
#include "analysis/static/static_analysis.h"
#include "elements/error_estimate.h"
#include "support/analysis_run.h"

namespace kestralum {
namespace {

using testing::ModelText;
using testing::rect;

class MeshQuality : public testing::AnalysisTest {
protected:
    RunReport bend(const std::string& cells, const std::string& form = "full") {
        EXPECT_TRUE(read(ModelText{.parts = rect("BEAM", "1 0.1 0.1", cells),
                                   .supports = "C plane x 0 0 0 0 0 0",
                                   .rigid = "% load_info T traction TIP 0 0 -1e5 % hexahedra " + form + " %",
                                   .others = "set_info TIP plane x 1 %\n"}));
        const RunReport report = analyse(analyse_static);
        testing::expect_done(report);
        return report;
    }
};

// Zienkiewicz and Zhu: of a smooth field the estimate runs to the true error, which halves with the element.
// The true one follows from the strain energies: ‖e‖² = 2 (U - U_h), with U of a much finer mesh.
TEST_F(MeshQuality, TheEstimateFollowsTheTrueErrorOfABentBeam) {
    const double fine = bend("80 8 8", "enhanced").cases[0].strain_energy;
    double before = 0;
    for (const int n : {1, 2}) {
        const CaseReport report = bend(formatted("%d %d %d", 20 * n, 2 * n, 2 * n)).cases[0];
        const double truth = std::sqrt(1 - report.strain_energy / fine);
        std::printf("    %d elements through the thickness: estimated %.1f %%, true %.1f %%\n", 2 * n,
                    100 * report.error, 100 * truth);
        EXPECT_GT(report.error, 0.5 * truth);
        EXPECT_LT(report.error, 1.5 * truth);
        if (before > 0) {
            EXPECT_NEAR(report.error / before, 0.5, 0.15);
        }
        before = report.error;
        double largest = 0;
        for (const double e : frame().error) largest = std::max(largest, e);
        EXPECT_GT(largest, report.error);
        EXPECT_NE(report.worst_place.find("part BEAM"), std::string::npos);
    }
}

TEST_F(MeshQuality, AUniformStressHasNoErrorAcrossPartsToo) {
    // two materials in a row: the stress along is one, what lies across jumps and must not count
    const std::string text =
        ModelText{.parts = rect("a", "1 1 1", "2 2 2") +
                           testing::replaced(rect("b", "1 1 1", "2 2 2", "1 0 0"), " M ", " N "),
                  .supports =
                      "X plane x 0 0 0 0 0 0 fix=x Y plane y 0 0 0 0 0 0 fix=y Z plane z 0 0 0 0 0 0 fix=z "
                      "Y1 plane y 1 1 1 1 0 0 fix=y Z1 plane z 0 0 0 0 1 1 fix=z",
                  .rigid = "% load_info P pressure TIP -1e6 %",
                  .others = "set_info TIP plane x 2 %\n"};
    ASSERT_TRUE(read(testing::replaced(text, "material_info ", "material_info N 1000 7e10 0.1 ")));
    const RunReport report = analyse(analyse_static);
    testing::expect_done(report);
    EXPECT_LT(report.cases[0].error, 1e-7);
}

TEST_F(MeshQuality, FewFullHexahedraInBendingAndSliversAreNamed) {
    const auto noted = [](const RunReport& report, const std::string& what) {
        return std::ranges::any_of(report.remarks.notices,
                                   [&](const std::string& n) { return n.find(what) != n.npos; });
    };
    const std::string thin = "full hexahedra bend with one or two of them through the thickness";
    EXPECT_TRUE(noted(bend("20 1 1"), thin));
    EXPECT_TRUE(noted(bend("20 2 2"), thin));
    EXPECT_FALSE(noted(bend("40 4 4"), thin));
    EXPECT_FALSE(noted(bend("20 1 1", "enhanced"), thin));
    ASSERT_TRUE(read(ModelText{.parts = rect("BAR", "1 0.1 0.1", "20 1 1"),
                               .supports = "C plane x 0 0 0 0 0 0",
                               .rigid = "% load_info T traction TIP 1e5 0 0 %",
                               .others = "set_info TIP plane x 1 %\n"}));
    EXPECT_FALSE(noted(analyse(analyse_static), thin));  // pulled, not bent
    testing::Grid flat{{1, 1, 1}, {1, 1, 0.01}};
    ASSERT_TRUE(read(ModelText{.parts = part_of(ElementKind::tetrahedron4, flat),
                               .supports = "C plane x 0 0 0 0 0 0",
                               .forces = "F node z 1 1 1 0"}));
    EXPECT_TRUE(noted(analyse(analyse_static), "slivers are poor"));
}

}  // namespace
}  // namespace kestralum
