// Values, ranges, colours, legend texts and drawn displacements.
#include "view/contour.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/box_mesh.h"
#include "view/deformation.h"
#include "view/legend.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
using enum AnalysisType;

TEST(ContourColor, RunsFromBlueToRedAtFullBrightness) {
    const std::pair<double, Color> known[] = {{0, {0, 0, 1, 1}},
                                              {0.25, {0, 1, 1, 1}},
                                              {0.5, {0, 1, 0, 1}},
                                              {0.75, {1, 1, 0, 1}},
                                              {1, {1, 0, 0, 1}},
                                              {0.1, {0, 0.25f, 1, 1}},  // d = 0.8: (0, 0.2, 0.8) over 0.8
                                              {nan_value, {0.5f, 0.5f, 0.5f, 1}}};
    for (const auto& [v, color] : known)
        for (std::size_t k = 0; k < 4; ++k) EXPECT_FLOAT_EQ(contour_color(v, 1)[k], color[k]) << "v = " << v;
    EXPECT_FLOAT_EQ(contour_color(0.3, 0.4)[3], 0.4f);
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
    EXPECT_EQ(range.low.value, -3);
    EXPECT_EQ(range.low.node, 2);
    EXPECT_EQ(range.high.value, 9);
    EXPECT_EQ(range.high.node, 4);
    EXPECT_DOUBLE_EQ(normalised(0, range), 0.25);
    EXPECT_EQ(normalised(100, range), 1);  // a hidden node outside the range
    EXPECT_TRUE(std::isnan(normalised(nan_value, range)));
    EXPECT_FALSE(value_range(values, std::vector<std::int32_t>{2, 7, 8}));
    const ValueRange flat{{4, 1, 0}, {4, 1, 0}}, huge{{-1.5e308, 1, 0}, {1.5e308, 2, 0}};
    EXPECT_EQ(normalised(4, flat), 0);
    EXPECT_DOUBLE_EQ(normalised(0, huge), 0.5);

    const ValueRange all = value_range_all_frames(6, mesh, results, std::vector{0, 7}).value();
    EXPECT_EQ(all.low.value, 101);
    EXPECT_EQ(all.low.frame, 1);
    EXPECT_EQ(contour_bar(6, nonlinear_static, all).largest, "Max 2.010e+02 Node:1 Frame:2");
    EXPECT_FALSE(value_range_all_frames(17, mesh, results, shown));
}

TEST(Legend, NamesWhatTheAnalysisShows) {
    const auto text = [](AnalysisType type, std::int32_t contour, std::int32_t frame,
                         const std::vector<double>& n_freq = {0.5, 7, 12.344}) {
        Results results;
        for (const double value : n_freq) {
            Frame one;
            one.n_freq = value;
            results.push_back(std::make_shared<const Frame>(one));
        }
        return legend_text(type, contour, results, {.end_time = 0.03}, frame);
    };
    EXPECT_EQ(text(eigen, 4, 3), "Mode3___12.34[Hz]");
    EXPECT_EQ(text(linear_static, 10, 1), "Stress zx");
    EXPECT_EQ(text(linear_static, 18, 1), "");
    EXPECT_EQ(text(nonlinear_static, 0, 2), "Displacement Mag., step 2/3");
    EXPECT_EQ(text(explicit_dynamics, 4, 1), "Mises Stress, step 1/3  Time:0.500000[s]");
    EXPECT_EQ(text(AnalysisType{7}, 4, 1), "");
    EXPECT_EQ(text(eigen, 4, 0), "");
    EXPECT_EQ(text(eigen, 4, 4), "");
    // times that are not known, and the start of a run
    EXPECT_EQ(text(explicit_dynamics, 17, 3, {0, 0, 0}), ", step 3/3  Time:0.020000[s]");
    EXPECT_EQ(text(explicit_dynamics, 17, 1, {0, 0.02}), ", step 1/2  Time:0.000000[s]");
    EXPECT_EQ(text(explicit_dynamics, 17, 2, {0, 0.02}), ", step 2/2  Time:0.020000[s]");
}

TEST(Legend, BarCarriesValuesAndColours) {
    const ValueRange range{{-100, 3, 0}, {300, 12, 0}};
    const ContourBar bar = contour_bar(4, linear_static, range);
    EXPECT_EQ(bar.title, "Mises Stress [Pa]");
    EXPECT_EQ(bar.largest, "Max 3.000e+02 Node:12");
    EXPECT_EQ(bar.smallest, "Min -1.000e+02 Node:3");
    ASSERT_EQ(bar.ticks.size(), bar.colors.size());
    ASSERT_GE(bar.ticks.size(), 5u);
    EXPECT_EQ(bar.ticks.front().text, "-1.000e+02");
    EXPECT_EQ(bar.ticks.back().text, "3.000e+02");
    for (std::size_t k = 0; k < bar.ticks.size(); ++k) {
        const double value = std::stod(bar.ticks[k].text);
        EXPECT_NEAR(bar.ticks[k].at, (value + 100) / 400, 1e-3);
        EXPECT_EQ(bar.colors[k], contour_color(normalised(value, range), 1));
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
        EXPECT_LE(bar.panel_x + bar.panel_width, width);
        EXPECT_LE(bar.panel_y + bar.panel_height, height);
        if (height < 150) continue;
        EXPECT_LE(bar.text_x + 90, bar.panel_x + bar.panel_width);
        EXPECT_LT(bar.largest_y, bar.bar_y);
        EXPECT_LE(bar.smallest_y, bar.panel_y + bar.panel_height);
        EXPECT_GT(bar.bar_height, 0);
    }
}

TEST(Deformation, FollowsTheAnalysis) {
    const std::vector<double> vector{0, 0, 0, 3e-5, 0, 4e-5, 1e-5, 0, 0};  // largest 5e-5
    auto drawn = [&](AnalysisType type, double L, double mode_scale, bool automatic) {
        return 5e-5 * scale_factor(type, vector, {L, mode_scale, automatic});
    };
    EXPECT_NEAR(drawn(eigen, 2, 1, true), 0.4, 1e-12);
    EXPECT_NEAR(drawn(eigen, 2, 2.5, false), 1.0, 1e-12);
    EXPECT_NEAR(drawn(linear_static, 2, 3, true), 0.6, 1e-12);
    EXPECT_NEAR(drawn(linear_static, 2, 3, false), 1.5e-4, 1e-15);
    // 1/200 of the model is large enough to be seen as it is
    EXPECT_NEAR(drawn(linear_static, 0.0099, 1, true), 5e-5, 1e-15);
    EXPECT_NEAR(drawn(linear_static, 0.0101, 1, true), 0.00101, 1e-12);
    for (const auto type : {nonlinear_static, explicit_dynamics})
        EXPECT_DOUBLE_EQ(drawn(type, 2, 1, true), 5e-5);
    const std::vector<double> zero(9, 0.0), broken{1, 2, nan_value};
    EXPECT_EQ(scale_factor(eigen, zero, {}), 0);
    EXPECT_EQ(scale_factor(linear_static, zero, {}), 1);
    for (const AnalysisType type : {eigen, linear_static, explicit_dynamics})
        EXPECT_EQ(scale_factor(type, broken, {}), 0);
    EXPECT_EQ(scale_text(2000), "Deformation x 2000");

    const auto modes = phase_table(eigen), steps = phase_table(linear_static);
    EXPECT_EQ(modes[0], 1);
    EXPECT_NEAR(modes[5], 0, 1e-9);
    EXPECT_NEAR(modes[10], -1, 1e-9);
    for (const double factor : steps) EXPECT_EQ(factor, 1);
    const std::vector<double> x{1, 2, 3, 4, 5, 6}, u{1, 0, -1, 0, 2, 0}, bad{nan_value, 0, 0, 0, 0, 0};
    std::vector<double> out;
    displace(x, u, 0.5, out);
    EXPECT_EQ(out, (std::vector<double>{1.5, 2, 2.5, 4, 6, 6}));
    displace(x, bad, 0, out);
    EXPECT_EQ(out, x);
}

}  // namespace
