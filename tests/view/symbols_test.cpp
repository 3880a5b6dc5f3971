// Arrows, supports, axes and labels; what the slots set.
#include "view/symbols.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numbers>

#include "support/box_mesh.h"
#include "support/near.h"
#include "view/display_state.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

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
    ASSERT_EQ(symbols.labels.size(), 3u);
    EXPECT_EQ(symbols.labels[0].text, "1.234e+03[N]");
    ASSERT_GE(symbols.arrows.size(), 22u);
    EXPECT_LE(symbols.arrows.size(), 42u);  // 441 nodes, thinned out
    // evenly: no quarter of the side goes without
    std::array<int, 4> quarter{};
    for (std::size_t k = 1; k + 1 < symbols.arrows.size(); ++k)
        ++quarter[(symbols.arrows[k].tip[0] > 1) + 2 * (symbols.arrows[k].tip[1] > 1)];
    for (const int count : quarter) EXPECT_GE(count, 4);
    expect_near(symbols.arrows[0].tail, {0, 0, 0.5});
    expect_near(symbols.arrows[0].tip, {0, 0, 0.2});    // pulls the lower corner down, 0.15 of 2 m long
    EXPECT_NEAR(symbols.arrows[1].tip[2], 0.6, 1e-12);  // along the upper side: ends at the node
    expect_near(minus(symbols.arrows[1].tip, symbols.arrows[1].tail), {0.3, 0, 0});
    expect_near(symbols.arrows.back().tip, {3, 3, 3});
    expect_near(symbols.labels[1].at, {1 - 0.3, 1, 0.6});

    forces[0].value = 1234.5;  // pushes the same corner up
    const ForceSymbols pushed = force_symbols(mesh, forces, force_node, drawn);
    expect_near(pushed.arrows[0].tip, {0, 0, 0.5});
    expect_near(pushed.arrows[0].tail, {0, 0, 0.2});
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
    ASSERT_EQ(markers.labels.size(), 1u);
    EXPECT_EQ(markers.labels[0].text, "HIT: A - B");
    expect_near(markers.labels[0].at, {1, 0.5, 0.5});
    ASSERT_EQ(markers.lines.size(), 36u);
    for (std::size_t k = 0; k < 12; ++k)
        EXPECT_LE(std::max(markers.lines[k].from[0], markers.lines[k].to[0]), 1);
    for (std::size_t k = 12; k < 24; ++k)
        EXPECT_GE(std::min(markers.lines[k].from[0], markers.lines[k].to[0]), 1);
}

TEST(Symbols, WallsStandWhereTheirMotionHasBroughtThem) {
    const Scene scene{{0, 0, 0, 2, 1, 1}, 2};
    std::vector<RigidWall> walls(3);
    walls[0].axis = 2;  // a plane z = 0.5 without bounds
    walls[0].box = {0, 0, 0, 0, 0.5, 0.5};
    walls[0].motion[2].start = 0.25;
    walls[1].kind = WallKind::sphere;
    walls[1].radius = 0.5;
    walls[1].box = {1, 1, 1, 1, 1, 1};
    walls[2].axis = 7;  // damaged
    const Markers markers = wall_markers(walls, {}, 0, scene);
    ASSERT_EQ(markers.labels.size(), 2u);
    expect_near(markers.labels[0].at, {1, 0.5, 0.75});
    double farthest = 0;
    for (const Line& line : markers.lines)
        for (const Vec3& end : {line.from, line.to}) {
            const bool on_plane = std::abs(end[2] - 0.75) < 1e-12 && std::abs(end[0] - 1) < 1.2 + 1e-9 &&
                                  std::abs(end[1] - 0.5) < 1.2 + 1e-9;
            EXPECT_TRUE(on_plane || std::abs(norm(minus(end, {1, 1, 1})) - 0.5) < 1e-9);
            farthest = std::max(farthest, std::abs(end[0] - 1));
        }
    EXPECT_NEAR(farthest, 1.2, 1e-9);
}

TEST(Symbols, SupportsStandOutsideTheBody) {
    const Mesh mesh = hexa_box({{2, 2, 2}, {2, 2, 2}});
    // face middles, the body's middle, strangers
    const std::vector<std::int32_t> fixed{4, 22, 4, 13, -1, 27};
    const auto cones = support_cones(mesh, fixed, mesh.coordinates);
    ASSERT_EQ(cones.size(), 3u);
    expect_near(cones[0].tip, {1, 1, 0});
    expect_near(cones[0].axis, {0, 0, -1});
    expect_near(cones[2].tip, {1, 1, 2});
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
    // z' = Rz(30) Rx(50) e_z, and the angle of 110 that the node line makes with x' about it
    constexpr double degree = std::numbers::pi / 180;
    const Vec3 node_line{std::cos(30 * degree), std::sin(30 * degree), 0};
    const Vec3 z = plus(times(std::cos(50 * degree), {0, 0, 1}),
                        times(std::sin(50 * degree), cross(node_line, {0, 0, 1})));
    const Vec3 x =
        plus(times(std::cos(110 * degree), node_line), times(std::sin(110 * degree), cross(z, node_line)));
    expect_near(lines[4].to, plus({0.1, 0, 0.05}, times(2, z)));
    expect_near(lines[0].to, plus({0.1, 0, 0.05}, times(2, x)));
    EXPECT_EQ(lines[0].color, (Color{1, 0, 0, 1}));

    parts[0].type = Shape::hole_cyli;
    parts[0].size = {20, 60, 0, 0, 0, 0};
    parts[0].euler_angles = {};
    const auto outline = feature_outlines(parts);
    ASSERT_FALSE(outline.empty());
    for (const Line& line : outline) {
        EXPECT_NEAR(std::hypot(line.from[0] - 0.1, line.from[1]), 0.02, 1e-12);
        EXPECT_GE(line.from[2], 0.05 - 1e-12);
        EXPECT_LE(line.to[2], 0.11 + 1e-12);
    }
    parts[0].type = Shape::rect;  // solids come from the mesh
    EXPECT_TRUE(feature_outlines(parts).empty());
}

TEST(Symbols, LabelsNameSizesCountsAndParts) {
    const Mesh mesh = hexa_box({{2, 1, 1}, {0.25, 0.5, 1}});
    const Markers sizes = dimensions({mesh.size_info, mesh.max_length});
    ASSERT_EQ(sizes.labels.size(), 3u);
    EXPECT_EQ(sizes.labels[0].text, "x:0.25[m]");
    for (const Label& label : sizes.labels)  // beside the body, not in it
        EXPECT_TRUE(label.at[0] < 0 || label.at[1] < 0);
    EXPECT_TRUE(dimensions({{}, 1}).labels.empty());
    EXPECT_EQ(fem_information(mesh, 2),
              (std::vector<std::string>{"Element type: 8-node hexahedron", "Node: 12", "Element: 2",
                                        "D.o.f.: 36", "Part: 2"}));
    Mesh parted = mesh;
    parted.p_ele_part_id = {1, 5};  // 5 is no part
    std::vector<Part> parts(2);
    parts[0].origin = {7, 0, 0};
    parts[1].name = "arm";
    const auto names = part_names(parted, parts, mesh.coordinates);
    ASSERT_EQ(names.size(), 2u);
    expect_near(names[0].at, {7, 0, 0});
    expect_near(names[1].at, {0.0625, 0.25, 0.5});
    EXPECT_EQ(names[1].text, "arm");
}

TEST(Display, AdvancesTheFrame) {
    DisplayState state;
    state.animation_running = true;
    std::vector<std::int32_t> shown;
    for (int tick = 0; tick < 4; ++tick) {
        advance(state, AnalysisType::explicit_dynamics, 3);
        shown.push_back(state.frame);
    }
    EXPECT_EQ(shown, (std::vector<std::int32_t>{2, 3, 3, 3}));
    EXPECT_FALSE(state.animation_running);
    state.frame = 9;  // of results that had more frames
    for (int tick = 0; tick < phase_count + 1; ++tick) advance(state, AnalysisType::eigen, 3);
    EXPECT_EQ(state.phase, 1);
    EXPECT_EQ(state.frame, 3);
    advance(state, AnalysisType::linear_static, 3);
    EXPECT_EQ(state.frame, 1);
}

TEST(Display, PixmapSizesAreReadOrRefused) {
    for (const char* text : {"640x480", "640  x 480"})
        EXPECT_EQ(pixmap_size(text), (std::array{640, 480})) << text;
    for (const char* text : {"640*480", " 640x480", "640x480 ", "x480", "640x", "0x480", "-3x4",
                             "99999999999x1", "20000x10", ""})
        EXPECT_FALSE(pixmap_size(text)) << text;
}

}  // namespace
