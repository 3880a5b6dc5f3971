// The forms of hexahedra in whole analyses: bending, incompressible flow, large steps, and the plain form as
// it was.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/static/static_analysis.h"
#include "support/finite_problem.h"

namespace kestralum {
namespace {

using testing::FiniteProblem;
using testing::ModelText;

class Hexahedra : public testing::AnalysisTest {
protected:
    // MacNeal and Harder's straight cantilever (Finite Elem. Anal. Des. 1, 1985) of 6 × 1 × 1 elements, with
    // a unit force at its end.
    static std::string beam(const std::string& key, char axis, const std::string& part = {}) {
        return ModelText{.material = "1 1e7 0.3",
                         .parts = part.empty() ? testing::rect("b", "6 0.2 0.1", "6 1 1") : part,
                         .supports = "clamp plane x 0 0 0 0 0 0",
                         .forces = std::string("unit area ") + axis + " 1 6 6 0 0.2 0 0.1",
                         .others = key};
    }
    double tip(const std::string& key, std::size_t axis) {
        EXPECT_TRUE(read(beam(key, "xyz"[axis])));
        const RunReport report = analyse(analyse_static);
        testing::expect_done(report);
        EXPECT_NEAR(report.reaction[axis], -1, 1e-8);
        return displacement(6, 0.2, 0.1)[axis];
    }
};

TEST_F(Hexahedra, EnhancedOnesBendAsMacNealAndHardersBeam) {
    const double reference[] = {3.0e-5, 0.1081, 0.4321};
    for (std::size_t axis = 0; axis < 3; ++axis)
        expect_figure("enhanced, six elements", tip("hexahedra enhanced %\n", axis), reference[axis], 0.03);
    EXPECT_LT(tip("", 1), 0.1 * reference[1]);  // which the plain ones do not
    // the first bending frequency, (1.8751/L)² √(EI/ρA) / 2π
    ASSERT_TRUE(read(beam("hexahedra enhanced %\n", 'x')));
    const double bending = std::pow(1.8751 / 6, 2) * std::sqrt(1e7 * 0.01 / 12) / (2 * std::numbers::pi);
    testing::expect_done(analyse(analyse_eigen_subspace));
    expect_figure("enhanced, first frequency", frame().n_freq, bending, 0.03);
}

// Nothing said and `full` are the same run to the byte; the command comes before the model; a mesh of
// tetrahedra has no form.
TEST_F(Hexahedra, TheFormIsTheCommandsThenTheModels) {
    tip("", 1);
    const std::string plain = file("result_model.txt");
    EXPECT_FALSE(plain.empty());
    tip("hexahedra full %\n", 1);
    EXPECT_EQ(file("result_model.txt"), plain);
    const double averaged = tip("hexahedra mean-dilatation %\n", 1);
    EXPECT_NE(file("result_model.txt"), plain);
    options.hexahedra = HexahedronForm::mean_dilatation;
    EXPECT_EQ(tip("hexahedra enhanced %\n", 1), averaged);
    options.hexahedra = HexahedronForm::full;
    tip("hexahedra enhanced %\n", 1);
    EXPECT_EQ(file("result_model.txt"), plain);
    options.hexahedra.reset();
    const std::string solid = part_of(ElementKind::tetrahedron4, {{6, 1, 1}, {6, 0.2, 0.1}});
    ASSERT_TRUE(read(beam("hexahedra enhanced %\n", 'y', solid)));
    EXPECT_TRUE(testing::contains(analyse(analyse_static).remarks.notices.at(0), "without effect"));
}

// A quarter of a thick cylinder under inner pressure in plane strain, radii 3 to 9 m, E = 1000 Pa, nearly
// incompressible (MacNeal and Harder, 1985): Lamé's radial displacement at the bore. The nine chords of the
// bore carry 0.9975 of the arc's pressure.
TEST(HexahedraInPressure, DoNotLockWhereTheVolumeKeeps) {
    static constexpr double radius[] = {3, 3.5, 4.2, 5.2, 6.75, 9};
    static constexpr double ten_degrees = std::numbers::pi / 18;
    constexpr double nu = 0.4999;
    const double exact = (1 + nu) * 9 / (1000 * 72) * (27 + (1 - 2 * nu) * 3);
    for (const auto form : {HexahedronForm::enhanced, HexahedronForm::mean_dilatation}) {
        const Mesh mesh = testing::hexa_box({{5, 9, 1}, {5, 9, 1}, [](double* x) {
                                                 const double r = radius[std::lround(x[0])];
                                                 const double angle = ten_degrees * x[1];
                                                 x[0] = r * std::cos(angle);
                                                 x[1] = r * std::sin(angle);
                                             }});
        const auto planes = [](const double* x, int c) { return c == 2 || x[c] < 1e-9; };
        FiniteProblem problem(mesh, {.young = 1000, .poisson = nu}, planes, 1e-6, form);
        constexpr double pressure = 1e-6;
        std::vector<double> load(problem.mesh.coordinates.size());
        for (std::int32_t n = 0; n < problem.mesh.node_num(); ++n) {
            const double *x = problem.mesh.node(n), angle = std::atan2(x[1], x[0]);
            if (std::hypot(x[0], x[1]) > 3 + 1e-9) continue;
            const double a = std::max(angle - ten_degrees, 0.0),
                         b = std::min(angle + ten_degrees, std::numbers::pi / 2);
            load[3 * n] =
                pressure * 3 * (std::sin(b) - std::sin(a)) / 4;  // half of each chord, half the height
            load[3 * n + 1] = pressure * 3 * (std::cos(a) - std::cos(b)) / 4;
        }
        problem.start(load);
        ASSERT_TRUE(problem.solver->advance(1, 1).converged);
        EXPECT_NEAR(problem.displacement({3, 0, 0}, 0) / pressure, exact, 0.02 * exact) << word_of(form);
    }
}

// A bending step far past yield: once it is near, each iteration squares the error down to its rounding, in
// every form.
TEST(HexahedraInLargeSteps, ConvergeQuadratically) {
    for (const auto& [kind, form] : testing::every_form) {
        if (kind != ElementKind::hexahedron) continue;
        FiniteProblem bent(
            testing::hexa_box({{2, 2, 10}, {0.1, 0.1, 1}}),
            {.young = 1e9, .poisson = 0.3, .yield_stress = 2e6, .hardening = 1e8},
            [](const double* x, int) { return x[2] < 1e-12; }, 1e-9, form);
        bent.start_with_traction(1, 8e4);
        const IncrementReport report = bent.solver->advance(1, 1);
        ASSERT_TRUE(report.converged) << word_of(form);
        EXPECT_FALSE(report.searched);
        EXPECT_LE(report.iterations, 9);
        EXPECT_GT(plastic_share(bent.body), 0.05);
        const auto last = report.ratios.end();
        EXPECT_LT(last[-1], std::max(1e-11, 100 * last[-2] * last[-2])) << word_of(form);
        EXPECT_LT(last[-2], 1e-3) << word_of(form);
    }
}

}  // namespace
}  // namespace kestralum
