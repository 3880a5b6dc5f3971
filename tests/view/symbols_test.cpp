// Axes, arrows, supports, walls, labels; rigid elements with their springs and forces; what the slots set.
#include "view/symbols.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "support/box_mesh.h"
#include "support/near.h"
#include "support/text_checks.h"
#include "view/camera.h"
#include "view/display_state.h"
#include "view/rigid_symbols.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

void expect_arrow(const Arrow& arrow, const Vec3& tail, const Vec3& tip) {
    expect_near(arrow.tail, tail);
    expect_near(arrow.tip, tip);
}

std::string texts_of(const std::vector<Label>& labels) {
    std::string texts;
    for (const Label& label : labels) texts += label.text + "|";
    return texts;
}

// The ends of all lines.
std::vector<Vec3> ends_of(std::span<const Line> lines) {
    std::vector<Vec3> ends;
    for (const Line& line : lines) ends.insert(ends.end(), {line.from, line.to});
    return ends;
}

TEST(Symbols, ForcesEndAtTheirDrawnNodes) {
    const Mesh mesh = hexa_box({{20, 20, 1}, {2, 2, 0.1}});
    std::vector<double> drawn = mesh.coordinates;
    for (std::size_t k = 2; k < drawn.size(); k += 3) drawn[k] += 0.5;
    std::vector<AppliedForce> forces(6);
    forces[0].axis = 2;
    forces[0].value = -1234.5;
    forces[1].kind = forces[2].kind = ForceKind::area;
    forces[1].value = 10;
    forces[1].box = {0, 2, 0, 2, 0.1, 0.1};
    forces[2].value = 1;
    forces[2].box = {9, 10, 9, 10, 9, 10};  // holds no node
    forces[3].axis = 7;                     // damaged
    forces[4].value = 5;
    forces[4].point = {3, 3, 3};                           // no node found
    const std::int32_t force_node[] = {1, 0, 0, 0, 0, 1};  // the last one of 0 N: nothing is drawn
    const ForceSymbols symbols = force_symbols(mesh, forces, force_node, drawn);
    EXPECT_EQ(texts_of(symbols.labels), "1.234e+03[N]|1.000e+01[N]|5.000e+00[N]|");
    ASSERT_TRUE(symbols.arrows.size() >= 22 && symbols.arrows.size() <= 42) << "441 nodes, thinned out";
    // evenly: no quarter of the side goes without
    std::array<int, 4> quarter{};
    for (std::size_t k = 1; k + 1 < symbols.arrows.size(); ++k)
        ++quarter[(symbols.arrows[k].tip[0] > 1) + 2 * (symbols.arrows[k].tip[1] > 1)];
    EXPECT_GE(*std::min_element(quarter.begin(), quarter.end()), 4);
    // pulls the lower corner down, 0.15 of 2 m long; along the upper side an arrow ends at its node
    expect_arrow(symbols.arrows[0], {0, 0, 0.5}, {0, 0, 0.2});
    const Vec3 at = symbols.arrows[1].tip;
    expect_arrow(symbols.arrows[1], {at[0] - 0.3, at[1], 0.6}, at);
    expect_near(symbols.arrows.back().tip, {3, 3, 3});
    expect_near(symbols.labels[1].at, {1 - 0.3, 1, 0.6});
    forces[0].value = 1234.5;  // pushes the same corner up
    expect_arrow(force_symbols(mesh, forces, force_node, drawn).arrows[0], {0, 0, 0.2}, {0, 0, 0.5});
}

TEST(Symbols, ContactPairsHaveABoxAboutEachPart) {
    Mesh mesh = hexa_box({{2, 1, 1}, {2, 1, 1}});
    mesh.p_ele_part_id = {0, 1};
    std::vector<ContactPair> pairs(2);
    pairs[0].name = "HIT";
    pairs[0].part_name = {"A", "B"};
    pairs[1].part_name = {"A", "C"};  // no such part
    std::vector<Part> parts(2);
    parts[0].name = "A";
    parts[1].name = "B";
    const Markers markers = contact_markers(mesh, parts, pairs, mesh.coordinates);
    EXPECT_EQ(texts_of(markers.labels), "HIT: A - B|");
    expect_near(markers.labels.at(0).at, {1, 0.5, 0.5});
    ASSERT_EQ(markers.lines.size(), 36u);
    for (const Vec3& end : ends_of(std::span(markers.lines).first(12))) EXPECT_LE(end[0], 1);
    for (const Vec3& end : ends_of(std::span(markers.lines).subspan(12, 12))) EXPECT_GE(end[0], 1);
}

TEST(Symbols, WallsStandWhereTheirMotionHasBroughtThem) {
    std::vector<RigidWall> walls(3);
    walls[0].axis = 2;  // a plane z = 0.5 without bounds
    walls[0].box = {0, 0, 0, 0, 0.5, 0.5};
    walls[0].motion[2].start = 0.25;
    walls[1].kind = WallKind::sphere;
    walls[1].radius = 0.5;
    walls[1].box = {1, 1, 1, 1, 1, 1};
    walls[2].axis = 7;  // damaged
    const Markers markers = wall_markers(walls, {}, 0, {{0, 0, 0, 2, 1, 1}, 2});
    ASSERT_EQ(markers.labels.size(), 2u);
    const Vec3 middle{1, 0.5, 0.75};
    expect_near(markers.labels[0].at, middle);
    double farthest = 0;
    for (const Vec3& end : ends_of(markers.lines)) {
        if (std::abs(norm(minus(end, {1, 1, 1})) - 0.5) < 1e-9) continue;  // of the sphere
        const Vec3 away = minus(end, middle);
        EXPECT_NEAR(away[2], 0, 1e-12);
        farthest = std::max({farthest, std::abs(away[0]), std::abs(away[1])});
    }
    EXPECT_NEAR(farthest, 1.2, 1e-9);
}

TEST(Symbols, SupportsStandOutsideTheBody) {
    const Mesh mesh = hexa_box({{2, 2, 2}, {2, 2, 2}});
    // face middles, the body's middle, strangers
    const auto cones = support_cones(mesh, std::vector{4, 22, 4, 13, -1, 27}, mesh.coordinates);
    ASSERT_EQ(cones.size(), 3u);
    expect_near(cones[0].tip, {1, 1, 0});
    expect_near(cones[0].axis, {0, 0, -1});
    expect_near(cones[2].axis, {0, 0, 1});
    EXPECT_NEAR(norm(cones[1].axis), 1, 1e-12);  // inside: any direction, but one
}

TEST(Symbols, PartsStandInTheirFrame) {
    std::vector<Part> parts(2);
    parts[0].origin = {100, 0, 50};
    parts[0].unit_factor = 0.001;
    parts[0].euler_angles = {30, 50, 110};
    parts[1].active = 0;
    const auto lines = part_axes(parts, 2);
    ASSERT_EQ(lines.size(), 5u);
    // z' = Rx(50) e_z about the node line; x' stands 110 degrees on from it about z'
    constexpr double degree = std::numbers::pi / 180;
    const Vec3 node_line{std::cos(30 * degree), std::sin(30 * degree), 0}, origin{0.1, 0, 0.05};
    const Vec3 z = transform(rotation(node_line, 50 * degree), {0, 0, 1});
    expect_near(lines[4].to, plus(origin, times(2, z)));
    expect_near(lines[0].to, plus(origin, times(2, transform(rotation(z, 110 * degree), node_line))));
    EXPECT_EQ(lines[0].color, (Color{1, 0, 0, 1}));

    parts[0].type = Shape::hole_cyli;
    parts[0].size = {20, 60, 0, 0, 0, 0};
    parts[0].euler_angles = {};
    const auto outline = feature_outlines(parts);
    ASSERT_FALSE(outline.empty());
    for (const Vec3& end : ends_of(outline)) {
        EXPECT_NEAR(std::hypot(end[0] - 0.1, end[1]), 0.02, 1e-12);
        EXPECT_TRUE(std::abs(end[2] - 0.05) < 1e-12 || std::abs(end[2] - 0.11) < 1e-12);
    }
    parts[0].type = Shape::rect;  // solids come from the mesh
    EXPECT_TRUE(feature_outlines(parts).empty());
}

TEST(Symbols, LabelsNameSizesCountsAndParts) {
    const Mesh mesh = hexa_box({{2, 1, 1}, {0.25, 0.5, 1}});
    const Markers sizes = dimensions({mesh.size_info, mesh.max_length});
    EXPECT_EQ(texts_of(sizes.labels), "x:0.25[m]|y:0.5[m]|z:1[m]|");
    for (const Label& label : sizes.labels)  // beside the body, not in it
        EXPECT_TRUE(label.at[0] < 0 || label.at[1] < 0);
    EXPECT_EQ(joined(fem_information(mesh, 2)),
              "Element type: 8-node hexahedron\nNode: 12\nElement: 2\nD.o.f.: 36\nPart: 2\n");
    Mesh parted = mesh;
    parted.p_ele_part_id = {1, 5};  // 5 is no part
    std::vector<Part> parts(2);
    parts[0].origin = {7, 0, 0};
    parts[1].name = "arm";
    const auto names = part_names(parted, parts, mesh.coordinates);
    EXPECT_EQ(texts_of(names), "|arm|");
    expect_near(names[0].at, {7, 0, 0});
    expect_near(names[1].at, {0.0625, 0.25, 0.5});
}

struct RigidPicture : ::testing::Test {
    // A bar 2 × 1 × 1 m with a rigid end at either side, each with a point 0.5 m outside.
    RigidPicture() {
        for (std::size_t k = 0; k < 2; ++k) {
            elements[k].name = k ? "RIGHT" : "LEFT";
            elements[k].reference = {k ? 2.5 : -0.5, 0.5, 0.5};
            holds[k].normal = {k ? 1.0 : -1.0, 0, 0};
            for (std::int32_t n = 0; n < mesh.node_num(); ++n)
                if (mesh.node(n)[0] == (k ? 2 : 0)) holds[k].nodes.push_back(n);
        }
    }
    RigidSymbols symbols() const { return rigid_symbols({mesh, elements, holds, forces, combines}, shape); }
    // u of all nodes from a place's displacement.
    template <typename Field>
    void displace(Field field) {
        displacement.clear();
        for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
            const Vec3 u = field(triple(mesh.coordinates, n));
            displacement.insert(displacement.end(), u.begin(), u.end());
        }
        shape.vector = displacement;
    }

    Mesh mesh = hexa_box({{2, 5, 5}, {2, 1, 1}});
    std::vector<RigidElement> elements{2};
    std::vector<RigidHold> holds{2};
    std::vector<RigidForce> forces;
    std::vector<RigidCombine> combines;
    std::vector<double> displacement;
    RigidShape shape;
};

// A turn by 2.5 rad about (1, 2, 2)/3 with a shift, and its small-motion counterpart.
Vec3 turn(const Vec3& x) {
    const Vec3 turned = transform(rotation({1.0 / 3, 2.0 / 3, 2.0 / 3}, 2.5), x);
    return plus(minus(turned, x), {0.1, -0.2, 0.3});
}
Vec3 small_turn(const Vec3& x) {
    return plus(cross({0.3, -0.7, 0.4}, x), {0.1, -0.2, 0.3});
}

TEST_F(RigidPicture, PointsFollowTheBodyThatCarriesThem) {
    const Vec3 point{4, -3, 2};  // off the plane of the nodes
    const auto expect_carried = [&](const Vec3& p, std::span<const std::int32_t> nodes, auto motion) {
        displace(motion);
        expect_near(carried_point(p, mesh, nodes, shape), plus(p, times(shape.factor, motion(p))), 1e-11);
    };
    shape.finite = true;
    for (const double factor : {1.0, 0.0, 3.0}) {
        shape.factor = factor;
        expect_carried(point, holds[1].nodes, turn);
    }
    shape.finite = false;
    shape.factor = -20;
    expect_carried(point, holds[1].nodes, small_turn);
    // nodes in a row carry the points of their line, one node itself
    std::vector<std::int32_t> row;
    for (const std::int32_t n : holds[1].nodes)
        if (mesh.node(n)[1] == 0) row.push_back(n);
    ASSERT_EQ(row.size(), 6u);
    expect_carried({2, 0, 7}, row, small_turn);
    expect_carried(triple(mesh.coordinates, row[0]), std::span(row).first(1), small_turn);
    EXPECT_EQ(carried_point(point, mesh, {}, shape), point);
    // beside the line too, where the body does not turn about it
    expect_carried(point, row, [](const Vec3& x) { return cross({0.3, -0.7, 0}, x); });
}

TEST_F(RigidPicture, MembersAreWhereTheirNodesAreDrawn) {
    displace([](const Vec3& x) { return Vec3{0.25 * x[0], 0, 0}; });
    shape.factor = 2;
    holds[1].nodes.insert(holds[1].nodes.end(), {-1, mesh.node_num()});  // strangers
    const RigidSymbols out = symbols();
    ASSERT_EQ(out.members.size(), 72u);
    for (std::size_t k = 0; k < 72; ++k) EXPECT_DOUBLE_EQ(out.members[k][0], k < 36 ? 0 : 3);
    EXPECT_EQ(texts_of(out.labels), "LEFT|RIGHT|");
    expect_near(out.labels[1].at, {3.5, 0.5, 0.5});
    const auto spokes = std::ranges::count_if(out.lines, [&](const Line& line) {
        return line.from == out.labels[1].at && std::abs(line.to[0] - 3) < 1e-12;
    });
    EXPECT_TRUE(spokes >= 8 && spokes <= 16) << spokes;
    // a displacement that is not finite is drawn undeformed, by a factor of 0
    displace([](const Vec3&) { return Vec3{std::nan(""), 0, 0}; });
    shape.factor = 0;
    expect_near(symbols().labels[1].at, elements[1].reference);
    for (const Vec3& place : symbols().members) EXPECT_TRUE(place[0] == 0 || place[0] == 2) << place[0];
}

TEST_F(RigidPicture, WithoutMembersTheRegionShows) {
    holds.clear();
    elements.resize(1);
    elements[0].region = {0, 1, 0, 2, 0, 3};
    double length = 0;
    for (const Line& line : symbols().lines) length += norm(minus(line.to, line.from));
    EXPECT_NEAR(length, 4 * (1 + 2 + 3) + 3 * 0.04 * 2, 1e-12);
    elements[0].kind = RigidSelection::round;  // centre 0 1 0, radius 2, axis x, half thickness 0.5
    elements[0].region = {0, 1, 0, 2, 0, 0.5};
    const RigidSymbols round = symbols();
    for (const Vec3& end : ends_of(std::span(round.lines).subspan(3)))
        expect_near({std::abs(end[0]), std::hypot(end[1] - 1, end[2]), 0}, {0.5, 2, 0});
}

TEST_F(RigidPicture, SpringsReachFromPointToPoint) {
    const std::size_t without = symbols().lines.size();
    // the others are of elements that do not exist
    for (const auto& ends : {std::array{1, 0}, {0, 2}, {-1, 0}}) {
        combines.emplace_back().element = ends;
        combines.back().name = "JOINT";
    }
    displace([](const Vec3& x) { return Vec3{0, x[0] == 2 ? 0.5 : 0, 0}; });
    shape.factor = 2;
    const RigidSymbols out = symbols();
    EXPECT_EQ(texts_of(out.labels), "LEFT|RIGHT|JOINT|");
    expect_near(out.labels.back().at, {1, 1, 0.5});
    const std::span spring = std::span(out.lines).subspan(without);
    expect_near(spring.back().to, {-0.5, 0.5, 0.5});
    double path = 0;
    for (std::size_t k = 0; k < spring.size(); ++k) {
        EXPECT_EQ(spring[k].from, k > 0 ? spring[k - 1].to : out.labels[1].at) << "the coil is torn";
        path += norm(minus(spring[k].to, spring[k].from));
    }
    EXPECT_GT(path, 1.01 * std::hypot(3.0, 1.0)) << "a straight line is no spring";
    elements[1].reference = elements[0].reference;  // joints of bodies that touch
    holds[1] = holds[0];
    expect_near(minus(symbols().lines.back().to, elements[0].reference), {0, 0, 0.04});
}

TEST_F(RigidPicture, ForcesAndMomentsKeepOutOfTheBody) {
    using enum RigidDirection;
    const auto act = [&](std::int32_t element, RigidDirection direction, double value) {
        forces.push_back({0, "", "", element, "", direction, value});
    };
    act(1, x, 1234.5);   // pulls at the right end
    act(1, x, -2);       // pushes
    act(0, rz, 2);       // across the outside
    act(0, normal, -3);  // along the normal: into the body
    act(0, y, 0);        // a label only
    act(4, y, 1);        // of no element
    act(1, rx, -7);      // against the normal
    const RigidSymbols out = symbols();
    const Vec3 left{-0.5, 0.5, 0.5}, right{2.5, 0.5, 0.5}, arm{0.3, 0, 0};
    ASSERT_EQ(out.arrows.size(), 3u);
    expect_arrow(out.arrows[0], right, plus(right, arm));
    expect_arrow(out.arrows[1], plus(right, arm), right);
    expect_arrow(out.arrows[2], minus(left, arm), left);
    ASSERT_EQ(out.turns.size(), 2u);
    expect_near(out.turns[0].foot, left);
    // right-handed about the moment, whatever side of the point it stands on
    expect_near(cross(out.turns[0].u, out.turns[0].v), {0, 0, 0.01});
    expect_near(cross(out.turns[1].u, out.turns[1].v), {-0.01, 0, 0});
    expect_near(out.turns[1].centre, plus(right, times(0.5, arm)));
    EXPECT_EQ(texts_of(out.labels),
              "LEFT|RIGHT|1.234e+03[N]|2.000e+00[N]|2.000e+00[Nm]|3.000e+00[N]|"
              "0.000e+00[N]|7.000e+00[Nm]|");
    expect_near(out.labels[2].at, plus(right, arm));
    expect_near(out.labels[6].at, left);
}

// A tick changes the state where animates() says so, and there only.
TEST(Display, AnimatesWhereATickChangesSomething) {
    using enum AnalysisType;
    for (const AnalysisType type : {eigen, buckling, linear_static, nonlinear_static, explicit_dynamics})
        for (const bool running : {false, true})
            for (const int frames : {0, 1, 5}) {
                DisplayState state;
                state.animation_running = running;
                state.result_ready = frames > 0;
                state.frame = clamp_frame(frames - 1, frames);
                for (int tick = 0; tick < 8; ++tick) {
                    const bool says = animates(state, type, frames);
                    const int frame = state.frame, phase = state.phase;
                    const bool ran = state.animation_running;
                    advance(state, type, frames);
                    const bool swung = frames > 0 && state.phase != phase;
                    EXPECT_EQ(says, swung || state.frame != frame ||
                                        (!has_shapes(type) && state.animation_running != ran));
                }
            }
}

TEST(Display, PixmapSizesAreReadOrRefused) {
    EXPECT_EQ(pixmap_size("640  x 480"), (std::array{640, 480}));
    for (const char* text : {"640*480", " 640x480", "640x480 ", "x480", "640x", "0x480", "-3x4",
                             "99999999999x1", "20000x10", ""})
        EXPECT_FALSE(pixmap_size(text)) << text;
}

}  // namespace
