// What elements have themselves: uniform states, the averages that are made of them, jumps between materials.
#include "analysis/element_values.h"

#include <cmath>

#include "analysis/buckling/buckling_analysis.h"
#include "analysis/nonlinear/nonlinear_analysis.h"
#include "elements/element_type.h"
#include "elements/finite_elements.h"
#include "results/result_file.h"
#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

class ElementValues : public ExplicitTest {
protected:
    std::vector<double> values(const Frame& of) const { return element_values(model, result, of); }
    std::size_t elements() const { return result.mesh.element_num(); }
    // Every element's value is the one at all nodes.
    void expect_uniform(const Frame& of, double tolerance, int groups = stress_groups) const {
        const std::vector<double> got = values(of);
        ASSERT_EQ(got.size(), 3 * stress_groups * elements());
        const std::size_t dofs = of.mode_vec.size();
        for (std::size_t k = 0; k < 3 * std::size_t(groups); ++k) {
            const std::size_t group = k / 3, kind = group == 4 ? 0 : group / 2 * 2;
            double size = 0;
            for (const double v : std::span(of.node_stress).subspan(kind * dofs, 2 * dofs))
                size = std::max(size, std::abs(v));
            for (std::size_t e = 0; e < elements() && k != 13; ++e)
                ASSERT_NEAR(got[3 * (group * elements() + e) + k % 3], of.node_stress[group * dofs + k % 3],
                            tolerance * size)
                    << k;
        }
    }
    // Of elements with one point a node's value is the mean of its elements', weighted with their volumes, in
    // one part.
    void expect_nodal_means(const Frame& of, bool deformed, double tolerance) const {
        const Mesh& mesh = result.mesh;
        const std::vector<double> got = values(of);
        ASSERT_EQ(got.size(), 3 * stress_groups * elements());
        PointResults now;
        const std::vector<double> rest(of.mode_vec.size(), 0.0);
        logarithmic_strains(mesh, deformed ? of.mode_vec : rest, 1, now);
        const NodeElements around = elements_of_nodes(mesh);
        double largest = 0;
        for (const double s : std::span(of.node_stress).first(2 * rest.size()))
            largest = std::max(largest, std::abs(s));
        for (std::int32_t n = 0; n < mesh.node_num(); ++n)
            for (std::size_t c = 0; c < 6; ++c) {
                double sum = 0, volume = 0;
                for (const std::int32_t e : around.of(n)) {
                    volume += now.volume[e];
                    sum += now.volume[e] * got[3 * (c / 3 * elements() + e) + c % 3];
                }
                ASSERT_NEAR(sum / volume, of.node_stress[c / 3 * rest.size() + 3 * n + c % 3],
                            tolerance * largest);
            }
    }
};

// A cube with all its faces held that is heated has one stress throughout, and no strain; one that is pulled
// has the stress and the strains of its traction.
TEST_F(ElementValues, OfAUniformStateAreThoseOfTheNodes) {
    const double hot = -2e11 * 1e-5 * 50 / (1 - 0.6);  // -E α ΔT / (1 - 2ν)
    for (const auto& [kind, form] : every_form) {
        options.hexahedra = form;
        const Grid cube{{3, 3, 3}, {1, 1, 1}, [](double* x) {
                            const double bump = x[0] * (1 - x[0]) * x[1] * (1 - x[1]) * x[2] * (1 - x[2]);
                            for (int c = 0; c < 3; ++c) x[c] += 2 * bump;
                        }};
        read(ModelText{.material = "7800 2e11 0.3 alpha=1e-5",
                       .parts = kind == ElementKind::hexahedron ? rect("b", "1 1 1", "3 3 3")
                                                                : part_of(kind, cube),
                       .supports = "A plane x 0 0 0 0 0 0 fix=x B plane x 1 1 0 0 0 0 fix=x C plane y 0 0 0 "
                                   "0 0 0 fix=y D plane y 0 0 1 1 0 0 fix=y E plane z 0 0 0 0 0 0 fix=z F "
                                   "plane z 0 0 0 0 1 1 fix=z",
                       .rigid = "% load_info H temperature all 50 %"},
             "end_time 1e-4 output_frequency 1");
        expect_done(analyse(analyse_static));
        EXPECT_NEAR(values(frame())[0], hot, 1e-9 * std::abs(hot)) << "with the temperature of the run";
        expect_uniform(frame(), 1e-8, 2);
        expect_done(analyse(analyse_explicit));
        EXPECT_NEAR(values(frame())[0], hot, 1e-6 * std::abs(hot));
        expect_uniform(frame(), 1e-6, 2);
        read(ModelText{.parts = part_of(kind, {{3, 3, 3}, {1, 1, 1}, cube.move}),
                       .supports = "A plane x 0 0 0 0 0 0 fix=x C plane y 0 0 0 0 0 0 fix=y E plane z 0 0 0 "
                                   "0 0 0 fix=z",
                       .rigid = "% load_info P traction TIP 1e8 0 0 %",
                       .others = "set_info TIP plane x 1 %\n"},
             "");
        expect_done(analyse(analyse_static));
        EXPECT_NEAR(values(frame())[0], 1e8, 1);
        expect_uniform(frame(), 1e-7);
        expect_done(analyse(analyse_nonlinear));
        expect_uniform(*result.results.back(), 1e-6);
    }
}

// Load cases with and without heat, modes, buckling shapes, plastic flow, motion.
TEST_F(ElementValues, OfOnePointElementsMakeTheNodesMeans) {
    read(ModelText{.material = "7800 2e11 0.3 alpha=1e-5",
                   .parts = part_of(ElementKind::tetrahedron4, {{4, 2, 2}, {1, 0.2, 0.1}}),
                   .supports = "A plane x 0 0 0 0 0 0",
                   .rigid = "% load_info F force TIP -3e5 1e5 -2e5 case=push H temperature all 50*x "
                            "case=heat % load_combination both 0.5*push+2*heat %",
                   .others = "set_info TIP plane x 1 %\n"},
         "end_time 2e-4 output_frequency 20 Plastic on MATERIAL_EXTRA_INFO M 0 1.2e8 1e9 %");
    expect_done(analyse(analyse_static));
    ASSERT_EQ(result.results.size(), 3u);
    for (const auto& each : result.results) expect_nodal_means(*each, false, 1e-9);
    for (const Analyse linear : {find_analysis("eigen-lanczos")->analyse, Analyse(analyse_buckling)}) {
        expect_done(analyse(linear));
        expect_nodal_means(frame(), false, 1e-9);
    }
    options.load_case = "push";
    expect_done(analyse(analyse_nonlinear));
    expect_nodal_means(*result.results.back(), true, 1e-6);
    const std::vector<double> bent = values(*result.results.back());
    double plastic = 0;
    for (std::size_t e = 0; e < elements(); ++e)
        plastic = std::max(plastic, bent[3 * (4 * elements() + e) + 1]);
    EXPECT_GT(plastic, 1e-4);
    expect_done(analyse(analyse_explicit));
    expect_nodal_means(*result.results.back(), true, 1e-6);
    // a file has what the run kept, or nothing
    options.keep_frames = true;
    options.log_folder = folder.file("log");
    result = analyse_explicit(model, settings, options, said);
    expect_done(result.report);
    const std::vector<double> exact = values(*result.results.back());
    const auto frames = read_result_file("log\\frames_model.txt", options.log_folder, said);
    ASSERT_TRUE(frames) << said.errors;
    EXPECT_EQ(element_values(frames->model, frames->run, *frames->run.results.back()), exact);
    const auto text = read_result_file("log\\result_model.txt", options.log_folder, said);
    ASSERT_TRUE(text) << said.errors;
    EXPECT_TRUE(element_values(text->model, text->run, *text->run.results.back()).empty());
    options.load_case.clear();
    expect_done(analyse(analyse_static));
    const auto linear = read_result_file("log\\result_model.txt", options.log_folder, said);
    ASSERT_TRUE(linear && linear->run.ana_type == AnalysisType::linear_static) << said.errors;
    EXPECT_TRUE(element_values(linear->model, linear->run, *linear->run.results.front()).empty());
}

// In a bent bar the mean of an element's nodes comes to its own value as elements get smaller.
TEST_F(ElementValues, AndTheMeansOfTheirNodesComeTogether) {
    double before = 0;
    for (const int n : {2, 4}) {
        ASSERT_TRUE(AnalysisTest::read(
            ModelText{.parts = part_of(ElementKind::hexahedron, {{5 * n, n, 2 * n}, {1, 0.1, 0.2}}),
                      .supports = "A plane x 0 0 0 0 0 0",
                      .rigid = "% load_info F force TIP 0 0 -1e4 %",
                      .others = "set_info TIP plane x 1 %\n"}));
        options.hexahedra = HexahedronForm::enhanced;
        expect_done(analyse(analyse_static));
        const std::vector<double> own = values(frame());
        double error = 0;
        for (std::size_t e = 0; e < elements(); ++e) {
            const auto nodes = result.mesh.element(static_cast<std::int32_t>(e));
            const double x = element_centre(result.mesh, static_cast<std::int32_t>(e))[0];
            if (x < 0.3 || x > 0.7) continue;
            double mean = 0;
            for (const std::int32_t node : nodes) mean += frame().node_stress[3 * node_index(node)] / 8;
            error = std::max(error, std::abs(mean - own[3 * e]));
        }
        std::printf("    %d elements high: %.4g Pa\n", 2 * n, error);
        if (n > 2) {
            EXPECT_LT(error, 0.35 * before);
        }
        before = error;
    }
}

// Two bars side by side of E and E/2, stretched together: the nodes between them have one value, the elements
// each their own.
TEST_F(ElementValues, KeepTheJumpBetweenTwoMaterials) {
    ASSERT_TRUE(AnalysisTest::read(
        ModelText{.material = "7800 2e11 0 N 7800 1e11 0",
                  .parts = rect("hard", "1 0.1 0.1", "5 2 2") +
                           replaced(rect("soft", "1 0.1 0.1", "5 2 2", "0 0.1 0"), " M ", " N "),
                  .supports = "A plane x 0 0 0 0 0 0 B plane x 1 1 0 0 0 0 fix=x ux=1e-4"}));
    expect_done(analyse(analyse_static));
    const std::vector<double> got = values(frame());
    for (std::size_t e = 0; e < elements(); ++e) {
        const bool soft = result.mesh.p_ele_part_id[e] == 1;
        const double exact = soft ? 1e7 : 2e7;
        EXPECT_NEAR(got[3 * e], exact, 1e-8 * exact);
        EXPECT_NEAR(got[3 * (2 * elements() + e)], 1e-4, 1e-12);
        EXPECT_NEAR(got[3 * (4 * elements() + e)], exact, 1e-8 * exact) << "Mises";
        EXPECT_NEAR(got[3 * (4 * elements() + e) + 2], exact, 1e-8 * exact) << "largest principal";
    }
    EXPECT_NEAR(frame().node_stress[3 * AnalysisTest::node_at(0.4, 0.1, 0)], 2e7, 1)
        << "the node tells of one side";
}

}  // namespace
}  // namespace kestralum
