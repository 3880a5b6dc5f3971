// A run as curves: what they are called, measure and show.
#include "results/history.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

constexpr double none = std::numeric_limits<double>::quiet_NaN();

void add_frame(Run& run, double n_freq) {
    auto frame = std::make_shared<Frame>(run.mesh.dof_num());
    frame->n_freq = n_freq;
    for (std::size_t d = 0; d < frame->mode_vec.size(); ++d) frame->mode_vec[d] = n_freq * double(d);
    for (std::size_t k = 0; k < frame->node_stress.size(); ++k) frame->node_stress[k] = 1e6 * double(k);
    run.results.push_back(frame);
}

TEST(History, NamesColumnsWithTheirUnitsAndGrowsWithTheRun) {
    kestralum::Run run;
    run.ana_type = AnalysisType::explicit_dynamics;
    run.mesh = box_mesh({{1, 1, 1}, {1, 1, 1}}, ElementKind::hexahedron);
    run.history.columns = {"time",       "kinetic",       "internal",      "plastic",
                           "damping",    "wall",          "contact",       "external",
                           "support",    "drift",         "momentum_x",    "angular_momentum_y",
                           "reaction_z", "wall_node_7_x", "contact_A_u_y", "support_momentum_z",
                           "node12_u_x", "node12_v_y",    "node12_a_z",    "wall_W_peak"};
    add_frame(run, 0);
    add_frame(run, 0.25);
    for (int k = 0; k < 20; ++k) run.history.values.push_back(k == 0 ? 0 : std::pow(2, k));
    const std::vector<std::int32_t> nodes{8, 9};  // the second is not there
    History history = make_history(run, nodes);
    EXPECT_EQ(with_unit(history.axis, history.axis_unit), "Time [s]");
    const std::map<std::string, double> expected{{"Total energy [J]", 2. + 4 + 16 - 32 - 64 - 128 - 256},
                                                 {"Kinetic energy [J]", 2},
                                                 {"Plastic energy, part of the internal [J]", 8},
                                                 {"Work of supports [J]", 256},
                                                 {"Error of the energy balance [%]", 51200},
                                                 {"Momentum x [kg m/s]", 1024},
                                                 {"Angular momentum y [kg m^2/s]", 2048},
                                                 {"Reaction z [N]", 4096},
                                                 {"Wall node_7 force x [N]", 8192},
                                                 {"Contact A_u force y [N]", 16384},
                                                 {"Support momentum force z [N]", 32768},
                                                 {"Probe node 12 displacement x [m]", 65536},
                                                 {"Probe node 12 velocity y [m/s]", 131072},
                                                 {"Probe node 12 acceleration z [m/s^2]", 262144},
                                                 {"Wall W force, largest since the row before [N]", 524288}};
    std::size_t found = 0;
    for (const HistoryColumn& column : history.columns) {
        const auto known = expected.find(with_unit(column.name, column.unit));
        ASSERT_EQ(column.values.size(), 2u);
        if (known == expected.end()) continue;
        ++found;
        EXPECT_EQ(column.values[0], known->second) << known->first;
        EXPECT_TRUE(std::isnan(column.values[1])) << "no row has come yet";
    }
    EXPECT_EQ(found, expected.size());
    ASSERT_EQ(history.columns.size(), 20u + 5);
    EXPECT_EQ(history.columns[23].name, "Node 8 displacement, size");
    EXPECT_NEAR(history.columns[23].values[1], 0.25 * std::hypot(21, 22, 23), 1e-12);
    EXPECT_EQ(history.columns[24].values[1], 1e6 * (4 * 24 + 21));
    add_frame(run, 0.5);
    extend(history, run);
    EXPECT_EQ(history.x, (std::vector<double>{0, 0.25, 0.5}));
    const std::vector<std::size_t> two{1, 23};
    EXPECT_EQ(csv_text(history, two).substr(0, 75),
              "Time [s],Kinetic energy [J],\"Node 8 displacement, size [m]\"\n0,2,0\n0.25,,9.5");
    add_frame(run, 0.4);
    extend(history, run);
    EXPECT_FALSE(history.ordered);
}

// Every screen column has the same lowest and highest point as the whole curve, its ends and its neighbours
// beyond the part that is seen.
TEST(History, ThinsACurveToWhatAScreenShows) {
    std::mt19937 numbers(5);
    std::uniform_real_distribution<double> step(0, 1), noise(-1, 1);
    std::vector<double> x, y;
    for (double at = 0; x.size() < 10000; at += step(numbers)) {
        x.push_back(at);
        y.push_back(x.size() % 97 == 0 ? none : noise(numbers));
    }
    constexpr int width = 300;
    const double from = x[1000] - 1e-9, to = x[7000] + 1e-9;
    const auto thin = thinned(x, y, from, to, width);
    EXPECT_LE(thin.size(), 4u * (width + 3));
    const auto column = [&](double at) { return int(std::floor((at - from) * width / (to - from))); };
    std::map<int, std::array<double, 2>> all, kept;
    const auto add = [](std::map<int, std::array<double, 2>>& ranges, int at, double value) {
        auto& range = ranges.try_emplace(at, std::array{value, value}).first->second;
        range = {std::min(range[0], value), std::max(range[1], value)};
    };
    for (std::size_t k = 999; k <= 7001; ++k)
        if (!std::isnan(y[k])) add(all, column(x[k]), y[k]);
    for (std::size_t k = 0; k < thin.size(); ++k) {
        add(kept, column(thin[k].x), thin[k].y);
        ASSERT_GE(thin[k].x, thin[k > 0 ? k - 1 : 0].x);
    }
    EXPECT_EQ(kept, all);
    EXPECT_TRUE(thinned({}, {}, 0, 1, 5).empty());
    EXPECT_EQ(thinned(std::vector{2., 2.}, std::vector{3., none}, 2, 2, 5).size(), 1u);
}

}  // namespace
