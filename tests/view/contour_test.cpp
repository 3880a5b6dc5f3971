// Values, ranges, colours, legend texts and drawn displacements; what is recomputed when.
#include "view/picture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "support/box_mesh.h"
#include "support/near.h"
#include "view/deformation.h"
#include "view/legend.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
using enum AnalysisType;

TEST(ContourColor, RunsFromBlueToRedAtFullBrightness) {
    // at 0.1 d is 0.8: (0, 0.2, 0.8) over 0.8
    const double at[] = {0, 0.1, 0.25, 0.5, 0.75, 1, nan_value};
    const Vec3 color[] = {{0, 0, 1}, {0, 0.25, 1}, {0, 1, 1},      {0, 1, 0},
                          {1, 1, 0}, {1, 0, 0},    {0.5, 0.5, 0.5}};
    for (std::size_t k = 0; k < 7; ++k) {
        const auto [red, green, blue, alpha] = scale_color({}, at[k], 0.4);
        expect_near({red, green, blue}, color[k], 1e-6);
        EXPECT_FLOAT_EQ(alpha, 0.4f);
    }
}

// Two frames; a displacement is frame·(component + 1), a stress 100·frame + 10·group + component.
struct Values : ::testing::Test {
    Values() {
        for (int k = 1; k <= 2; ++k) {
            Frame frame(mesh.dof_num());
            for (int d = 0; d < 24; ++d) frame.mode_vec[d] = k * (d % 3 + 1);
            for (int s = 0; s < 5 * 24; ++s) frame.node_stress[s] = 100 * k + 10 * (s / 24) + s % 3;
            results.push_back(std::make_shared<const Frame>(frame));
        }
    }
    Mesh mesh = hexa_box({{1, 1, 1}, {1, 1, 1}});
    Results results;
};

TEST_F(Values, StandWhereTheTableSays) {
    // displacements; Mises; xx yy zz; xy yz zx; strains in the same order; plastic strain
    const double expected[] = {std::sqrt(14.0), 1, 2, 3, 40, 0, 1, 2, 10, 11, 12, 20, 21, 22, 30, 31, 32};
    for (std::int32_t frame : {1, 2}) {
        for (std::int32_t k = 0; k < 17; ++k) {
            const double value = k < 4 ? frame * expected[k] : 100 * frame + expected[k];
            EXPECT_DOUBLE_EQ(nodal_values(k, mesh, *results[frame - 1]).at(5), value) << quantity_text(k);
        }
        EXPECT_EQ(nodal_values(plastic_strain_row, mesh, *results[frame - 1]).at(5), 100 * frame + 41);
    }
    for (const std::int32_t index : {-1, 17, 18, 1000})
        EXPECT_TRUE(nodal_values(index, mesh, *results[0]).empty());
    for (const std::int32_t frame : {-1, 0, 3}) EXPECT_FALSE(frame_at(results, frame));
    // a frame of another mesh, larger or smaller
    for (const Grid& other : {Grid{{3, 3, 3}, {1, 1, 1}}, Grid{{1, 1, 0}, {1, 1, 0}}})
        for (const std::int32_t index : {0, 4})
            EXPECT_TRUE(nodal_values(index, hexa_box(other), *results[0]).empty());
}

TEST_F(Values, RangeOverTheShownNodesNamesItsEnds) {
    std::vector<double> values{5, -3, nan_value, 9, 9, -3, 100, std::numeric_limits<double>::infinity()};
    const std::vector<std::int32_t> shown{0, 1, 2, 3, 4, 5, 7};
    const ValueRange range = value_range(values, shown).value();
    const ContourBar bar = contour_bar(6, nonlinear_static, range);
    EXPECT_EQ(bar.smallest + bar.largest, "Min -3.000e+00 Node:2Max 9.000e+00 Node:4");
    const auto share = [](double value, const ValueRange& in) {
        return share_of(value, in.low.value, in.high.value);
    };
    EXPECT_DOUBLE_EQ(share(0, range), 0.25);
    EXPECT_EQ(scale_color({}, share(100, range), 1),
              scale_color({}, 1, 1));  // a hidden node outside the range
    EXPECT_TRUE(std::isnan(share(nan_value, range)));
    EXPECT_FALSE(value_range(values, std::vector<std::int32_t>{2, 7, 8}));
    const ValueRange flat{{4, 1, 0}, {4, 1, 0}}, huge{{-1.5e308, 1, 0}, {1.5e308, 2, 0}};
    EXPECT_EQ(share(4, flat), 0);
    EXPECT_DOUBLE_EQ(share(0, huge), 0.5);

    const auto values_of = [&](std::int32_t index) {
        return [this, index](const Frame& frame) { return nodal_values(index, mesh, frame); };
    };
    const ValueRange all = value_range_all_frames(results, values_of(6), std::vector{0, 7}).value();
    const ContourBar all_bar = contour_bar(6, nonlinear_static, all);
    EXPECT_EQ(all_bar.smallest, "Min 1.010e+02 Node:1 Frame:1");
    EXPECT_EQ(all_bar.largest, "Max 2.010e+02 Node:1 Frame:2");
    EXPECT_FALSE(value_range_all_frames(results, values_of(17), shown));
}

TEST(Legend, NamesWhatTheAnalysisShows) {
    const std::vector<double> known{0.5, 7, 12.344}, unknown{0, 0, 0}, from_0{0, 0.02};
    for (const auto& [type, contour, n_freq, frame, expected] : {
             std::tuple{eigen, 4, known, 3, "Mode3___12.34[Hz]"},
             {buckling, 4, known, 3, "Mode3___Load factor 12.344"},
             {linear_static, 10, known, 1, "Stress zx"},
             {linear_static, 18, known, 1, ""},
             {nonlinear_static, 0, known, 2, "Displacement Mag., step 2/3"},
             {explicit_dynamics, 4, known, 1, "Mises Stress, step 1/3  Time:0.500000[s]"},
             {AnalysisType{7}, 4, known, 1, ""},
             {eigen, 4, known, 0, ""},
             {eigen, 4, known, 4, ""},
             {explicit_dynamics, 17, unknown, 3, ", step 3/3  Time:0.020000[s]"},
             {explicit_dynamics, 17, from_0, 1, ", step 1/2  Time:0.000000[s]"},
             {explicit_dynamics, 17, from_0, 2, ", step 2/2  Time:0.020000[s]"},
         }) {
        Results results;
        for (const double value : n_freq) {
            Frame one;
            one.n_freq = value;
            results.push_back(std::make_shared<const Frame>(one));
        }
        EXPECT_EQ(legend_text(type, contour, results, {.end_time = 0.03}, frame), expected);
    }
}

TEST(Legend, NamesTheLoadCase) {
    Frame one;
    one.name = "WIND";
    Results results{std::make_shared<const Frame>(one)};
    EXPECT_EQ(legend_text(linear_static, 4, results, {}, 1), "Mises Stress, load case WIND");
    results.push_back(std::make_shared<const Frame>(one));
    EXPECT_EQ(legend_text(linear_static, 4, results, {}, 2), "Mises Stress, load case WIND, 2/2");
    EXPECT_EQ(legend_text(linear_static, 17, results, {}, 1), "Load case WIND, 1/2");
}

// In percent, where the frame has one for each node.
TEST(Contour, ShowsTheEstimatedErrorInPercent) {
    const Mesh mesh = hexa_box({{1, 1, 1}, {1, 1, 1}});
    Frame frame(mesh.dof_num());
    EXPECT_TRUE(nodal_values(error_row, mesh, frame).empty());
    frame.error = {0, 0.25, 0, 0, 0, 0, 0, 1};
    const auto values = nodal_values(error_row, mesh, frame);
    EXPECT_EQ(values, (std::vector<double>{0, 25, 0, 0, 0, 0, 0, 100}));
    EXPECT_EQ(contour_bar(error_row, linear_static, {{0, 1, 0}, {100, 8, 0}}).title,
              "Estimated stress error [%]");
    frame.error.pop_back();
    EXPECT_TRUE(nodal_values(error_row, mesh, frame).empty()) << "of another mesh";
}

TEST(Legend, BarCarriesValuesAndColours) {
    const ValueRange range{{-100, 3, 0}, {300, 12, 0}};
    const ContourBar bar = contour_bar(4, linear_static, range);
    EXPECT_EQ(bar.title, "Mises Stress [Pa]");
    ASSERT_EQ(bar.ticks.size(), bar.colors.size());
    ASSERT_GE(bar.ticks.size(), 5u);
    EXPECT_EQ(bar.ticks.front().text, "-1.000e+02");
    EXPECT_EQ(bar.ticks.back().text, "3.000e+02");
    for (std::size_t k = 0; k < bar.ticks.size(); ++k) {
        const double value = std::stod(bar.ticks[k].text);
        EXPECT_NEAR(bar.ticks[k].at, (value + 100) / 400, 1e-3);
        EXPECT_EQ(bar.colors[k], scale_color({}, share_of(value, range.low.value, range.high.value), 1));
    }
    EXPECT_EQ(contour_bar(0, eigen, range).title, "Displacement Mag. [mode amplitude]");
    EXPECT_EQ(contour_bar(plastic_strain_row, nonlinear_static, range).title, "Eq. plastic strain");
    const ContourBar flat = contour_bar(4, linear_static, {{2, 1, 0}, {2, 1, 0}});
    EXPECT_EQ(flat.ticks.size(), 1u);
    EXPECT_EQ(flat.colors.front(), flat.colors.back());
    EXPECT_TRUE(contour_bar(17, linear_static, range).title.empty());
}

TEST(Legend, BarStaysInsideTheView) {
    for (const auto& [width, height] :
         {std::pair{1200.0, 800.0}, {640.0, 480.0}, {200.0, 150.0}, {20.0, 20.0}, {1.0, 1.0}}) {
        const BarLayout bar = bar_layout(width, height, 90, 16);
        EXPECT_GE(std::min({bar.panel_x, bar.panel_y, bar.bar_height}), 0);
        const double right = bar.panel_x + bar.panel_width, foot = bar.panel_y + bar.panel_height;
        EXPECT_TRUE(right <= width && foot <= height);
        if (height < 150) continue;
        EXPECT_TRUE(bar.text_x + 90 <= right && bar.largest_y < bar.bar_y && bar.smallest_y <= foot);
        EXPECT_GT(bar.bar_height, 0);
    }
}

TEST(Deformation, FollowsTheAnalysis) {
    const std::vector<double> vector{0, 0, 0, 3e-5, 0, 4e-5, 1e-5, 0, 0};  // largest 5e-5
    for (const auto& [type, rule, drawn] : {std::tuple{eigen, ScaleRule{2, 1, true}, 0.4},
                                            {eigen, {2, 2.5, false}, 1.0},
                                            {linear_static, {2, 3, true}, 0.6},
                                            {linear_static, {2, 3, false}, 1.5e-4},
                                            // 1/200 of the model is large enough to be seen as it is
                                            {linear_static, {0.0099, 1, true}, 5e-5},
                                            {linear_static, {0.0101, 1, true}, 0.00101},
                                            {nonlinear_static, {2, 1, true}, 5e-5},
                                            {explicit_dynamics, {2, 1, true}, 5e-5}})
        EXPECT_NEAR(5e-5 * scale_factor(type, vector, rule) / drawn, 1, 1e-12);
    const std::vector<double> zero(9, 0.0), broken{1, 2, nan_value};
    EXPECT_EQ(scale_factor(eigen, zero, {}), 0);
    EXPECT_EQ(scale_factor(linear_static, zero, {}), 1);
    for (const AnalysisType type : {eigen, linear_static, explicit_dynamics})
        EXPECT_EQ(scale_factor(type, broken, {}), 0);
    EXPECT_EQ(scale_text(2000), "Deformation x 2000");

    const auto modes = phase_table(eigen);
    expect_near({modes[0], modes[5], modes[10]}, {1, 0, -1}, 1e-9);
    for (const double factor : phase_table(linear_static)) EXPECT_EQ(factor, 1);
    const std::vector<double> x{1, 2, 3, 4, 5, 6}, u{1, 0, -1, 0, 2, 0}, bad{nan_value, 0, 0, 0, 0, 0};
    std::vector<double> out;
    displace(x, u, 0.5, out);
    EXPECT_EQ(out, (std::vector<double>{1.5, 2, 2.5, 4, 6, 6}));
    displace(x, bad, 0, out);
    EXPECT_EQ(out, x);
}

struct PictureOf : ::testing::Test {
    PictureOf() {
        state.result_ready = true;
        state.contour = 1;
        run.mesh = model.mesh = hexa_box({{2, 2, 2}, {2, 1, 1}});
        run.ana_type = AnalysisType::linear_static;
        Frame frame(run.mesh.dof_num());
        for (std::int32_t n = 0; n < run.mesh.node_num(); ++n)
            frame.mode_vec[3 * n] = 0.5 * run.mesh.node(n)[0];
        for (int k = 0; k < 2; ++k) run.results.push_back(std::make_shared<const Frame>(frame));
    }
    // Which of faces, colours and shape have changed since the last call.
    std::string changed() {
        const std::array<std::uint64_t, 3> before = last;
        picture.update(tables, state);
        last = {picture.faces_revision(), picture.color_revision(), picture.shape_revision()};
        std::string text;
        for (std::size_t k = 0; k < 3; ++k) text += last[k] != before[k] ? "fcs"[k] : '-';
        return text;
    }
    Model model;
    kestralum::Run run;
    SceneTables tables{model, &run, {}, {}};
    DisplayState state;
    Picture picture;
    std::array<std::uint64_t, 3> last{};
};

TEST_F(PictureOf, RecomputesWhatDependsOnTheChange) {
    EXPECT_EQ(changed(), "fcs");
    state.phase = 7;
    state.light = {9, 9, 9};
    EXPECT_EQ(changed(), "---");
    state.contour = 2;
    EXPECT_EQ(changed(), "-c-");
    state.mode_scale = 3;
    EXPECT_EQ(changed(), "--s");
    state.frame = 2;
    EXPECT_EQ(changed(), "-cs");
    state.scale.range = RangeKind::all_frames;
    EXPECT_EQ(changed(), "-c-");
    state.transparency = 0.5;
    EXPECT_EQ(changed(), "fcs");
    EXPECT_TRUE(picture.translucent());
    state.contour = 17;  // of lit parts the outside is drawn
    EXPECT_EQ(changed(), "fcs");
    EXPECT_FALSE(picture.translucent());
    run.results.push_back(run.results[0]);  // behind the frame shown
    picture.results_changed();
    EXPECT_EQ(changed(), "-c-");
    state.part_looks = {{true, 1, Color{1, 0, 0, 1}}};
    EXPECT_EQ(changed(), "---");
    state.part_looks[0].visible = false;
    EXPECT_EQ(changed(), "fcs");
    picture.mesh_changed();
    EXPECT_EQ(changed(), "fcs");
}

// Faces follow what a frame has lost, ranges the nodes that it draws; a node that lost its last element
// counts in no frame.
TEST_F(PictureOf, LeavesOutWhatAFrameHasLost) {
    Frame torn = *run.results[1];
    torn.removed = {0, 1};  // a row along x
    const std::vector<char> bare = bare_nodes(run.mesh, torn.removed);
    for (std::int32_t n = 0; n < run.mesh.node_num(); ++n) {
        const double* x = run.mesh.node(n);
        torn.mode_vec[3 * n] = bare[n] ? 1e6 : x[0] == 1 && x[1] == 0.5 && x[2] == 0.5 ? 7 : 1;
    }
    ASSERT_GT(std::ranges::count(bare, 1), 0);
    run.ana_type = explicit_dynamics;
    run.results[1] = std::make_shared<const Frame>(torn);
    run.results.push_back(std::make_shared<const Frame>(torn));
    EXPECT_EQ(changed(), "fcs");
    EXPECT_EQ(picture.outside().triangle_num(), 6 * 4 * 2);
    state.frame = 2;
    EXPECT_EQ(changed(), "fcs");
    const std::int64_t torn_triangles = picture.outside().triangle_num();
    EXPECT_NE(torn_triangles, 6 * 4 * 2);
    for (const std::int32_t e : picture.outside().triangle_element) EXPECT_GT(e, 1);
    EXPECT_TRUE(picture.is_removed(1) && !picture.is_removed(2));
    EXPECT_EQ(picture.range()->high.value, 7) << "in the middle, laid bare";
    state.frame = 3;
    EXPECT_EQ(changed(), "-cs") << "the same elements are missing";
    state.scale.range = RangeKind::all_frames;
    changed();
    EXPECT_EQ(picture.range()->high.value, 7);
    EXPECT_EQ(picture.range()->high.frame, 2);
    const ValueRange range = *picture.range();
    state.frame = 1;
    EXPECT_EQ(changed(), "fcs");
    EXPECT_EQ(picture.outside().triangle_num(), 6 * 4 * 2);
    EXPECT_EQ(picture.range()->high.node, range.high.node);
    state.transparency = 0.5;
    state.frame = 2;
    changed();
    EXPECT_EQ(picture.faces().triangle_num(), 6 * 6 * 2);
    state.result_ready = false;  // the model alone
    changed();
    EXPECT_EQ(picture.outside().triangle_num(), 6 * 4 * 2);
    state.result_ready = true;
    changed();
    picture.mesh_changed();
    run.results.assign(1, std::make_shared<const Frame>(run.mesh.dof_num()));
    changed();
    EXPECT_EQ(picture.outside().triangle_num(), 6 * 4 * 2) << "of another run";
}

TEST_F(PictureOf, ShowsNoValuesWithoutResults) {
    changed();
    ASSERT_TRUE(picture.contour());
    EXPECT_EQ(picture.range()->high.value, 1);
    EXPECT_TRUE(picture.deformed());
    // another mesh's; the frame shown stays until the picture is brought up to date
    run.results.assign(1, std::make_shared<const Frame>(3));
    EXPECT_EQ(picture.vector()[3], 0.5);
    for (const bool ready : {true, false}) {  // no values of this mesh; a model that no run belongs to
        state.result_ready = ready;
        SceneTables alone{model, ready ? &run : nullptr, {}, {}};
        picture.results_changed();
        picture.update(alone, state);
        EXPECT_FALSE(picture.contour());
        EXPECT_FALSE(picture.deformed());
        std::vector<double> places;
        picture.place(alone, 0, places);
        EXPECT_EQ(places, model.mesh.coordinates);
    }
}

}  // namespace
