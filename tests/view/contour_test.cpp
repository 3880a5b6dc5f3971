// Values, ranges, colours, legend texts and drawn displacements.
#include "view/contour.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/box_mesh.h"
#include "view/deformation.h"
#include "view/legend.h"
#include "view/surface.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

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

// Two frames that show each other's vector; a stress is 100·frame + 10·group + component.
class Values : public ::testing::Test {
protected:
    Values() {
        results.resize(2, mesh.dof_num);
        results.frame_vector = {1, 0};
        const int dofs = mesh.dof_num;
        for (int k = 0; k < 2 * dofs; ++k) results.mode_vec[k] = (k / dofs + 1) * (k % 3 + 1);
        for (int k = 0; k < 10 * dofs; ++k)
            results.node_stress[k] = 100 * (k / dofs / 5 + 1) + 10 * (k / dofs % 5) + k % 3;
    }
    double value(std::int32_t index, std::int32_t frame) const {
        const auto values = nodal_values(index, mesh, results, frame);
        return values.size() == 8 ? values[5] : -1;
    }
    Mesh mesh = hexa_box({{1, 1, 1}, {1, 1, 1}});
    Results results;
};

TEST_F(Values, StandWhereTheTableSays) {
    EXPECT_DOUBLE_EQ(value(0, 1), 2 * std::sqrt(14.0));
    EXPECT_DOUBLE_EQ(value(0, 2), std::sqrt(14.0));
    for (std::int32_t c = 0; c < 3; ++c) EXPECT_DOUBLE_EQ(value(1 + c, 1), 2.0 * (c + 1));
    // Mises; xx yy zz; xy yz zx; strains in the same order
    const int group_and_component[] = {40, 0, 1, 2, 10, 11, 12, 20, 21, 22, 30, 31, 32};
    for (std::int32_t k = 0; k < 13; ++k)
        for (std::int32_t frame : {1, 2})
            EXPECT_DOUBLE_EQ(value(4 + k, frame), 100 * frame + group_and_component[k])
                << quantity_text(4 + k);
    for (std::int32_t frame : {1, 2}) EXPECT_DOUBLE_EQ(value(plastic_strain_row, frame), 100 * frame + 41);
}

TEST_F(Values, AreMissingWithoutAFrameOrAQuantity) {
    for (const std::int32_t index : {-1, 17, 18, 1000})
        EXPECT_TRUE(nodal_values(index, mesh, results, 1).empty());
    for (const std::int32_t frame : {-1, 0, 3})
        for (const std::int32_t index : {0, 4})
            EXPECT_TRUE(nodal_values(index, mesh, results, frame).empty());
    // results of another mesh, larger or smaller, and a row that is not there
    for (const Grid& other : {Grid{{3, 3, 3}, {1, 1, 1}}, Grid{{1, 1, 0}, {1, 1, 0}}}) {
        const Mesh another = hexa_box(other);
        EXPECT_TRUE(nodal_values(0, another, results, 1).empty());
        EXPECT_TRUE(nodal_values(4, another, results, 2).empty());
    }
    results.frame_vector[0] = 2;
    EXPECT_TRUE(nodal_values(0, mesh, results, 1).empty());
}

TEST_F(Values, RangeOverTheShownNodesNamesItsEnds) {
    std::vector<double> values{5, -3, nan_value, 9, 9, -3, 100, std::numeric_limits<double>::infinity()};
    const std::vector<std::int32_t> shown{0, 1, 2, 3, 4, 5, 7};
    const auto range = value_range(values, shown);
    ASSERT_TRUE(range);
    EXPECT_EQ(range->low.value, -3);
    EXPECT_EQ(range->low.node, 2);
    EXPECT_EQ(range->high.value, 9);
    EXPECT_EQ(range->high.node, 4);
    EXPECT_DOUBLE_EQ(normalised(0, *range), 0.25);
    EXPECT_EQ(normalised(100, *range), 1);  // a hidden node outside the range
    EXPECT_TRUE(std::isnan(normalised(nan_value, *range)));
    EXPECT_FALSE(value_range(values, std::vector<std::int32_t>{2, 7, 8}));
    const ValueRange flat{{4, 1, 0}, {4, 1, 0}}, huge{{-1.5e308, 1, 0}, {1.5e308, 2, 0}};
    EXPECT_EQ(normalised(4, flat), 0);
    EXPECT_DOUBLE_EQ(normalised(0, huge), 0.5);
}

TEST_F(Values, RangeOverAllFramesNamesTheFrame) {
    const std::vector<std::int32_t> shown{0, 7};
    const auto range = value_range_all_frames(6, mesh, results, shown);  // 101 and 201 everywhere
    ASSERT_TRUE(range);
    EXPECT_EQ(range->low.value, 101);
    EXPECT_EQ(range->low.frame, 1);
    EXPECT_EQ(range->high.value, 201);
    EXPECT_EQ(range->high.frame, 2);
    EXPECT_EQ(contour_bar(6, AnalysisType::nonlinear_static, *range).largest, "Max 2.010e+02 Node:1 Frame:2");
    EXPECT_FALSE(value_range_all_frames(17, mesh, results, shown));
}

TEST(Legend, SaysWhatTheAnalysisShows) {
    Results results;
    results.resize(3, 24);
    results.n_freq = {0.5, 12.344, 7};
    results.frame_vector = {0, 2, 1};
    AnalysisControl control;
    auto text = [&](AnalysisType type, std::int32_t contour, std::int32_t frame) {
        return legend_text(type, contour, results, control, frame);
    };
    EXPECT_EQ(text(AnalysisType::eigen, 4, 3), "Mode3___12.34[Hz]");  // by way of the vector's row
    EXPECT_EQ(text(AnalysisType::linear_static, 10, 1), "Stress zx");
    EXPECT_EQ(text(AnalysisType::linear_static, 18, 1), "");
    EXPECT_EQ(text(AnalysisType::nonlinear_static, 0, 2), "Displacement Mag., step 2/3");
    EXPECT_EQ(text(AnalysisType::explicit_dynamics, 4, 1), "Mises Stress, step 1/3  Time:0.500000[s]");
    EXPECT_EQ(text(AnalysisType{7}, 4, 1), "");
    EXPECT_EQ(text(AnalysisType::eigen, 4, 0), "");
    EXPECT_EQ(text(AnalysisType::eigen, 4, 4), "");
    results.n_freq = {0, 0, 0};  // as a displacement file leaves it
    control.end_time = 0.03;
    EXPECT_EQ(text(AnalysisType::explicit_dynamics, 17, 3), ", step 3/3  Time:0.020000[s]");
}

TEST(Legend, BarCarriesValuesAndColours) {
    const ValueRange range{{-100, 3, 0}, {300, 12, 0}};
    const ContourBar bar = contour_bar(4, AnalysisType::linear_static, range);
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
    EXPECT_EQ(contour_bar(0, AnalysisType::eigen, range).title.find("[m]"), std::string::npos);
    EXPECT_EQ(contour_bar(plastic_strain_row, AnalysisType::nonlinear_static, range).title,
              "Eq. plastic strain");
    const ContourBar flat = contour_bar(4, AnalysisType::linear_static, {{2, 1, 0}, {2, 1, 0}});
    EXPECT_EQ(flat.ticks.size(), 1u);
    EXPECT_EQ(flat.colors.front(), flat.colors.back());
    EXPECT_TRUE(contour_bar(17, AnalysisType::linear_static, range).title.empty());
}

TEST(Legend, BarStaysInsideTheView) {
    for (const auto& [width, height] :
         {std::pair{1200.0, 800.0}, {640.0, 480.0}, {200.0, 150.0}, {20.0, 20.0}, {1.0, 1.0}}) {
        const BarLayout bar = bar_layout(width, height, 90, 16);
        EXPECT_GE(bar.panel_x, 0);
        EXPECT_GE(bar.panel_y, 0);
        EXPECT_LE(bar.panel_x + bar.panel_width, width);
        EXPECT_LE(bar.panel_y + bar.panel_height, height);
        EXPECT_GE(bar.bar_height, 0);
        if (height < 150) continue;
        EXPECT_LE(bar.text_x + 90, bar.panel_x + bar.panel_width);
        EXPECT_LT(bar.largest_y, bar.bar_y);
        EXPECT_LE(bar.smallest_y, bar.panel_y + bar.panel_height);
        EXPECT_GT(bar.bar_height, 0);
    }
}

TEST(Deformation, FollowsTheAnalysis) {
    const std::vector<double> vector{0, 0, 0, 3e-5, 0, 4e-5, 1e-5, 0, 0};  // largest 5e-5
    ASSERT_DOUBLE_EQ(largest_displacement(vector), 5e-5);
    auto drawn = [&](AnalysisType type, double L, double mode_scale, bool automatic) {
        return 5e-5 * scale_factor(type, vector, {L, mode_scale, automatic});
    };
    EXPECT_NEAR(drawn(AnalysisType::eigen, 2, 1, true), 0.4, 1e-12);
    EXPECT_NEAR(drawn(AnalysisType::eigen, 2, 2.5, false), 1.0, 1e-12);
    EXPECT_NEAR(drawn(AnalysisType::linear_static, 2, 3, true), 0.6, 1e-12);
    EXPECT_NEAR(drawn(AnalysisType::linear_static, 2, 3, false), 1.5e-4, 1e-15);
    // 1/200 of the model is large enough to be seen as it is
    EXPECT_NEAR(drawn(AnalysisType::linear_static, 0.0099, 1, true), 5e-5, 1e-15);
    EXPECT_NEAR(drawn(AnalysisType::linear_static, 0.0101, 1, true), 0.00101, 1e-12);
    for (const auto type : {AnalysisType::nonlinear_static, AnalysisType::explicit_dynamics})
        EXPECT_DOUBLE_EQ(drawn(type, 2, 1, true), 5e-5);
    const std::vector<double> zero(9, 0.0), broken{1, 2, nan_value};
    EXPECT_EQ(scale_factor(AnalysisType::eigen, zero, {}), 0);
    EXPECT_EQ(scale_factor(AnalysisType::linear_static, zero, {}), 1);
    for (const AnalysisType type : {AnalysisType::eigen, AnalysisType::linear_static, AnalysisType{3}})
        EXPECT_EQ(scale_factor(type, broken, {}), 0);
    EXPECT_EQ(scale_text(2000), "Deformation x 2000");
}

TEST(Deformation, MovesTheNodesThroughOneOscillation) {
    const auto modes = phase_table(AnalysisType::eigen), steps = phase_table(AnalysisType::linear_static);
    EXPECT_EQ(modes[0], 1);
    EXPECT_NEAR(modes[5], 0, 1e-9);
    EXPECT_NEAR(modes[10], -1, 1e-9);
    EXPECT_NEAR(modes[3], modes[17], 1e-9);
    for (const double factor : steps) EXPECT_EQ(factor, 1);
    const std::vector<double> x{1, 2, 3, 4, 5, 6}, u{1, 0, -1, 0, 2, 0}, bad{nan_value, 0, 0, 0, 0, 0};
    std::vector<double> out;
    displace(x, u, 0.5, out);
    EXPECT_EQ(out, (std::vector<double>{1.5, 2, 2.5, 4, 6, 6}));
    displace(x, {}, 0.5, out);
    EXPECT_EQ(out, x);
    displace(x, bad, 0, out);
    EXPECT_EQ(out, x);
}

}  // namespace
