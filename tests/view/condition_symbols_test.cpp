// Symbols of supports with options, of loads on faces, of the mass and of temperature, and of ties.
#include "view/condition_symbols.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/box_mesh.h"
#include "support/collected.h"
#include "support/near.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

// A box of 2 × 1 × 1 m with the sets x2 and z0 of its sides.
struct Conditions : ::testing::TestWithParam<ElementKind> {
    Conditions() {
        model.mesh = box_mesh({{4, 2, 2}, {2, 1, 1}}, GetParam());
        model.parts.resize(1);
        model.parts[0].name = "BOX";
        std::vector<SetDefinition> sets(2);
        sets[0] = {.name = "x2", .place = "", .kind = SetKind::plane, .axis = 0, .numbers = {2}};
        sets[1] = {.name = "z0", .place = "", .kind = SetKind::plane, .axis = 2, .numbers = {0}};
        Remarks remarks;
        EXPECT_TRUE(define_sets(sets, model.parts, model.mesh, remarks, Collected()));
        drawn = model.mesh.coordinates;
    }
    static FieldExpression field(const std::string& text, std::function<double(const double*)> at) {
        return {text, false, [at](const double* x, double) { return at(x); }};
    }
    Load& load(LoadKind kind, const std::string& set) {
        model.loads.push_back({.name = "L", .place = "", .kind = kind, .set_name = set});
        return model.loads.back();
    }
    std::vector<Arrow> arrows_of(const ConditionSymbols& symbols) {
        std::vector<Arrow> arrows;
        for (const Solids& group : symbols.solids)
            arrows.insert(arrows.end(), group.arrows.begin(), group.arrows.end());
        return arrows;
    }
    ConditionSymbols loads_alone() {
        const ConditionSymbols symbols = load_symbols(tables());
        model.loads.clear();
        return symbols;
    }
    ConditionTables tables() const { return {model, model.mesh, holds, springs, drawn}; }
    Model model;
    std::vector<SupportHold> holds;
    std::vector<SupportSprings> springs;
    std::vector<double> drawn;
};

INSTANTIATE_TEST_SUITE_P(Kinds, Conditions, ::testing::ValuesIn(every_kind));

// On the side x = 2, drawn at 5: a pressure that changes its sign presses above the middle and pulls below
// it; along the face and against it forces end there, a bearing load has nothing on its lee.
TEST_P(Conditions, LoadsOnFacesPointTheWayOfTheirForce) {
    for (std::size_t k = 0; k < drawn.size(); k += 3) drawn[k] += 3;
    load(LoadKind::pressure, "x2").value = field("z-0.5", [](const double* x) { return x[2] - 0.5; });
    const ConditionSymbols pressed = loads_alone();
    ASSERT_GE(arrows_of(pressed).size(), 4u);
    EXPECT_EQ(pressed.labels.at(0).text, "L z-0.5[Pa]");
    double longest = 0;
    for (const Arrow& arrow : arrows_of(pressed)) {
        const bool above = arrow.tip[2] > 0.5;
        const Vec3 &foot = above ? arrow.tip : arrow.tail, &end = above ? arrow.tail : arrow.tip;
        EXPECT_NEAR(foot[0], 5, 1e-12);
        EXPECT_NEAR(end[2], foot[2], 1e-12);
        // the farthest middle of a face is a quarter (quadrangles) or a third off the middle
        const double most = GetParam() == ElementKind::hexahedron ? 0.25 : 1.0 / 3;
        EXPECT_NEAR(end[0] - foot[0], 0.2 * std::abs(foot[2] - 0.5) / most, 1e-12);
        longest = std::max(longest, end[0] - foot[0]);
    }
    EXPECT_NEAR(longest, 0.2, 1e-12) << "a tenth of the model";

    for (const Vec3& force : {Vec3{-4, 0, 0}, Vec3{0, 3, 0}, Vec3{9, 0, 0}}) {
        load(LoadKind::force, "x2").force = force;
        const ConditionSymbols symbols = loads_alone();
        for (const Arrow& arrow : arrows_of(symbols)) {
            expect_near(minus(arrow.tip, arrow.tail), times(0.2 / norm(force), force));
            EXPECT_NEAR((force[0] > 0 ? arrow.tail : arrow.tip)[0], 5, 1e-12);
        }
        EXPECT_EQ(symbols.labels.at(0).text, "L " + formatted("%.3e[N]", norm(force)));
    }
    model.combinations = {{"SUM", "", {{"wind", 2}, {"base", 0}}}};
    for (const auto& [frame, shown] : {std::pair{"", true}, {"wind", true}, {"base", false}, {"SUM", true}}) {
        load(LoadKind::force, "x2").force = {1, 0, 0};
        model.loads[0].options.case_name = "wind";
        EXPECT_EQ(!load_symbols({model, model.mesh, holds, springs, drawn, {model, frame}}).labels.empty(),
                  shown)
            << frame;
        model.loads.clear();
    }
    load(LoadKind::bearing, "x2").force = {1, 5, 0};
    EXPECT_TRUE(arrows_of(loads_alone()).empty()) << "it looks along the force";
    load(LoadKind::bearing, "x2").force = {-1, 5, 0};
    for (const Arrow& arrow : arrows_of(loads_alone()))
        expect_near(minus(arrow.tip, arrow.tail), {-0.2, 0, 0});
}

// Gravity beyond the model, an axis right through it with the sense of turning, a point with its lines.
TEST_P(Conditions, LoadsOfTheBodyAndOfAPointStandBesideIt) {
    load(LoadKind::gravity, "").direction = {0, 0, -9.81};
    ConditionSymbols symbols = loads_alone();
    EXPECT_EQ(symbols.labels.at(0).text, "L 9.810e+00[m/s2]");
    EXPECT_NEAR(arrows_of(symbols).at(0).tail[2], -0.1, 1e-12);
    EXPECT_NEAR(arrows_of(symbols).at(0).tip[2], -0.6, 1e-12);
    for (const double speed : {30.0, -30.0}) {
        Load& spin = load(LoadKind::centrifugal, "");
        spin.direction = {1, 0, 0};
        spin.point = {7, 0.5, 0.5};
        spin.speed = speed;
        symbols = loads_alone();
        ASSERT_EQ(symbols.through.size(), 1u);
        EXPECT_TRUE(symbols.through[0].from[0] < 0 && symbols.through[0].to[0] > 2);
        const TurnArrow& turn = symbols.solids.at(0).turns.at(0);
        EXPECT_EQ(cross(turn.u, turn.v)[0] > 0, speed > 0) << "right-handed about the axis";
    }
    Load& crane = load(LoadKind::remote, "x2");
    crane.point = {3, 0.5, 0.5};
    crane.force = {0, 0, -10};
    crane.moment = {0, 0, 2};
    symbols = loads_alone();
    expect_near(arrows_of(symbols).at(0).tip, crane.point);
    const TurnArrow& turn = symbols.solids.at(0).turns.at(0);
    EXPECT_GT(cross(turn.u, turn.v)[2], 0);
    const auto to_faces = std::ranges::count_if(symbols.lines, [&](const Line& line) {
        return line.from == Vec3{3, 0.5, 0.5} && std::abs(line.to[0] - 2) < 1e-12;
    });
    EXPECT_GE(to_faces, 4);
    Load& heat = load(LoadKind::temperature, "");
    heat.part_name = "BOX";
    heat.value = field("293+40*z", [](const double*) { return 0; });
    EXPECT_EQ(loads_alone().labels.at(0).text, "L BOX T=293+40*z");
}

// A roller's cones stand outside the body, a displacement of 0 is one too; others are arrows.
TEST_P(Conditions, SupportsShowTheDirectionsTheyHoldMoveAndSpring) {
    model.boundary_conditions.resize(3);
    for (BoundaryCondition& record : model.boundary_conditions) record.name = "S";
    model.boundary_conditions[1].options.displacement[0] = field("0.1", [](const double*) { return 0.1; });
    model.boundary_conditions[1].options.displacement[1] = field("0*x", [](const double*) { return 0.0; });
    holds = {{0, 0, {0, 0, 1}, 2}, {0, 0, {0.6, 0.8, 0}, -1}, {1, 1, {1, 0, 0}, 0}, {1, 1, {0, 1, 0}, 1}};
    model.boundary_conditions[2].options.normal_spring = field("5e9", [](const double*) { return 5e9; });
    springs = {{2, find_set(model.mesh, "z0")->faces}};
    const ConditionSymbols symbols = support_symbols(tables());
    ASSERT_EQ(symbols.solids.size(), 2u);
    const std::vector<Cone>& cones = symbols.solids[0].cones;
    ASSERT_EQ(cones.size(), 3u);
    expect_near(cones[0].axis, {-0.6, -0.8, 0});
    expect_near(cones[1].axis, {0, 0, -1});
    expect_near(cones[2].axis, {0, -1, 0});
    const Arrow& moved = symbols.solids[1].arrows.at(0);
    expect_near(minus(moved.tip, moved.tail), {0.2, 0, 0});
    EXPECT_EQ(symbols.labels.at(0).text, "S ux=1.000e-01[m]");
    EXPECT_EQ(symbols.labels.at(1).text, "S 5.000e+09[N/m3]");
    for (const Line& line : symbols.lines) EXPECT_TRUE(line.from[2] <= 0 && line.to[2] < 0);
    EXPECT_GE(symbols.lines.size(), 4 * 8u);
}

// The edge of each set once around, and marks on it; a tie to a set that is not there has none.
TEST_P(Conditions, TiesShowBothSetsOfFaces) {
    model.ties = {{"GLUE", "x2", "z0"}, {"LOST", "x2", "none"}};
    const ConditionSymbols symbols = support_symbols(tables());
    ASSERT_EQ(symbols.labels.size(), 1u);
    EXPECT_EQ(symbols.labels[0].text, "GLUE: x2 - z0");
    double around = 0;
    for (const Line& line : symbols.through) {
        const Vec3 way = minus(line.to, line.from);
        if (std::ranges::count(way, 0.0) == 2 && norm(way) > 0.4) around += norm(way);
    }
    EXPECT_NEAR(around, 4 + 6, 1e-12);
}

// Of the box of 2 × 1 × 1 m: arrows lie outside it and point the way of the motion.
TEST_P(Conditions, VelocitiesPointTheWayOfTheMotion) {
    auto& [walls, initial, inputs, contacts] = model.explicit_tables;
    const auto velocity = [](VelocitySelection kind, int axis, double value, std::array<double, 6> box) {
        VelocityRecord record{"BOX", "", "", kind, axis, {}, box};
        record.velocity.start = value;
        return record;
    };
    const auto symbols_at = [&](std::optional<double> time) {
        ConditionTables at = tables();
        at.time = time;
        return velocity_symbols(at);
    };
    initial = {velocity(VelocitySelection::part, 1, -3, {}), velocity(VelocitySelection::part, 2, 4, {})};
    for (const std::optional<double> time : {std::optional<double>(), std::optional<double>(0)}) {
        const ConditionSymbols start = symbols_at(time);
        const auto arrows = arrows_of(start);
        ASSERT_EQ(arrows.size(), 2u);
        EXPECT_LT(arrows[0].tip[1], arrows[0].tail[1]);
        EXPECT_GT(arrows[0].tip[2], 1);
        EXPECT_GT(arrows[1].tip[2], arrows[1].tail[2]);
        EXPECT_GT(arrows[1].tip[0], 2);
        EXPECT_EQ(start.labels[0].text, "BOX starts at 3.000e+00[m/s]");
    }
    EXPECT_TRUE(symbols_at(0.1).solids.empty()) << "it moves already";
    initial.clear();
    for (const double v : {2.0, -2.0}) {
        inputs = {velocity(VelocitySelection::plane, 0, v, {2, 2, 0, 1, 0, 1})};
        const auto arrows = arrows_of(symbols_at(0.1));
        ASSERT_EQ(arrows.size(), 1u);
        EXPECT_GT(std::min(arrows[0].tip[0], arrows[0].tail[0]), 2);
        EXPECT_EQ(arrows[0].tip[0] > arrows[0].tail[0], v > 0);
    }
    TimeExpression& varying = inputs[0].velocity;
    varying = {"8*time", 0, true,
               [](std::string_view, std::span<const Parameter>, double time) { return 8 * time; }};
    EXPECT_EQ(symbols_at({}).labels.at(0).text, "BOX 8*time[m/s]");
    EXPECT_EQ(symbols_at(0.5).labels.at(0).text, "BOX 4.000e+00[m/s]");
    const ConditionSymbols still = symbols_at(0);
    EXPECT_TRUE(still.solids.empty() && still.labels.size() == 1);
}

}  // namespace
