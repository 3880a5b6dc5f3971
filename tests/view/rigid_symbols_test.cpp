// Rigid elements, their springs and forces, at rest and carried along.
#include "view/rigid_symbols.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/box_mesh.h"
#include "support/near.h"
#include "view/vector.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

struct RigidPicture : ::testing::Test {
    // A bar 2 × 1 × 1 m with a rigid end at either side, each with a point 0.5 m outside.
    RigidPicture() {
        elements[0].name = "LEFT";
        elements[0].reference = {-0.5, 0.5, 0.5};
        elements[1].name = "RIGHT";
        elements[1].reference = {2.5, 0.5, 0.5};
        for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
            const double x = triple(mesh.coordinates, n)[0];
            if (x == 0) holds[0].nodes.push_back(n);
            if (x == 2) holds[1].nodes.push_back(n);
        }
        holds[0].normal = {-1, 0, 0};
        holds[1].normal = {1, 0, 0};
    }
    RigidSymbols symbols() const { return rigid_symbols({mesh, elements, holds, forces, combines}, shape); }
    void force(std::int32_t element, RigidDirection direction, double value) {
        forces.emplace_back();
        forces.back().element = element;
        forces.back().direction = direction;
        forces.back().value = value;
    }
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

// A turn by 2.5 rad about (1, 2, 2)/3 (Rodrigues) with a shift, and its small-motion counterpart.
Vec3 turn(const Vec3& x) {
    const Vec3 axis{1.0 / 3, 2.0 / 3, 2.0 / 3};
    const double c = std::cos(2.5), s = std::sin(2.5);
    const Vec3 turned =
        plus(plus(times(c, x), times(s, cross(axis, x))), times((1 - c) * dot(axis, x), axis));
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
        if (triple(mesh.coordinates, n)[1] == 0) row.push_back(n);
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
    holds[1].nodes.push_back(-1);  // strangers
    holds[1].nodes.push_back(mesh.node_num());
    const RigidSymbols out = symbols();
    ASSERT_EQ(out.members.size(), 72u);
    for (std::size_t k = 0; k < 72; ++k) EXPECT_DOUBLE_EQ(out.members[k][0], k < 36 ? 0 : 3);
    ASSERT_EQ(out.labels.size(), 2u);
    EXPECT_EQ(out.labels[1].text, "RIGHT");
    expect_near(out.labels[1].at, {3.5, 0.5, 0.5});
    // every spoke goes from the reference point to a member
    int spokes = 0;
    for (const Line& line : out.lines) {
        if (line.from != out.labels[1].at) continue;
        ++spokes;
        EXPECT_NEAR(line.to[0], 3, 1e-12);
    }
    EXPECT_GE(spokes, 8);
    EXPECT_LE(spokes, 16);
    // a displacement that is not finite is drawn undeformed, by a factor of 0
    displace([](const Vec3&) { return Vec3{std::nan(""), 0, 0}; });
    shape.factor = 0;
    const RigidSymbols still = symbols();
    expect_near(still.labels[1].at, elements[1].reference);
    for (const Vec3& place : still.members) EXPECT_TRUE(place[0] == 0 || place[0] == 2) << place[0];
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
    ASSERT_GT(round.lines.size(), 3u + 2 * 12u);
    for (const Line& line : std::span(round.lines).subspan(3)) {
        EXPECT_NEAR(std::abs(line.from[0]), 0.5, 1e-12);
        EXPECT_NEAR(std::hypot(line.from[1] - 1, line.from[2]), 2, 1e-12);
    }
}

TEST_F(RigidPicture, SpringsReachFromPointToPoint) {
    const std::size_t without = symbols().lines.size();
    combines.resize(3);
    combines[0].name = "JOINT";
    combines[0].element = {1, 0};
    combines[1].element = {0, 2};  // of elements that do not exist
    combines[2].element = {-1, 0};
    displace([](const Vec3& x) { return Vec3{0, x[0] == 2 ? 0.5 : 0, 0}; });
    shape.factor = 2;
    const RigidSymbols out = symbols();
    ASSERT_EQ(out.labels.size(), 3u);
    EXPECT_EQ(out.labels[2].text, "JOINT");
    expect_near(out.labels[2].at, {1, 1, 0.5});
    const std::span spring = std::span(out.lines).subspan(without);
    ASSERT_GT(spring.size(), 20u);
    expect_near(spring.front().from, {2.5, 1.5, 0.5});
    expect_near(spring.back().to, {-0.5, 0.5, 0.5});
    double path = 0;
    for (std::size_t k = 0; k < spring.size(); ++k) {
        EXPECT_EQ(spring[k].from, k > 0 ? spring[k - 1].to : out.labels[1].at) << "the coil is torn";
        path += norm(minus(spring[k].to, spring[k].from));
    }
    EXPECT_GT(path, 1.01 * std::hypot(3.0, 1.0)) << "a straight line is no spring";
    elements[1].reference = elements[0].reference;  // joints of bodies that touch
    holds[1] = holds[0];
    const RigidSymbols joint = symbols();
    const Vec3 end{0, 0, 0.04}, start = joint.lines[joint.lines.size() - spring.size()].from;
    expect_near(minus(joint.lines.back().to, elements[0].reference), end);
    expect_near(minus(elements[0].reference, start), end);
}

TEST_F(RigidPicture, ForcesTellMomentsApartAndKeepOutOfTheBody) {
    force(1, RigidDirection::x, 1234.5);   // pulls at the right end
    force(1, RigidDirection::x, -2);       // pushes
    force(0, RigidDirection::rz, 2);       // across the outside
    force(0, RigidDirection::normal, -3);  // along the normal: into the body
    force(0, RigidDirection::y, 0);        // a label only
    force(4, RigidDirection::y, 1);        // of no element
    force(1, RigidDirection::rx, -7);      // against the normal
    const RigidSymbols out = symbols();
    ASSERT_EQ(out.arrows.size(), 3u);
    expect_near(out.arrows[0].tail, {2.5, 0.5, 0.5});
    expect_near(out.arrows[0].tip, {2.8, 0.5, 0.5});
    expect_near(out.arrows[1].tail, {2.8, 0.5, 0.5});
    expect_near(out.arrows[1].tip, {2.5, 0.5, 0.5});
    expect_near(out.arrows[2].tip, {-0.5, 0.5, 0.5});
    expect_near(out.arrows[2].tail, {-0.8, 0.5, 0.5});
    ASSERT_EQ(out.turns.size(), 2u);
    expect_near(out.turns[0].foot, {-0.5, 0.5, 0.5});
    // right-handed about the moment, whatever side of the point it stands on
    expect_near(cross(out.turns[0].u, out.turns[0].v), {0, 0, 0.01});
    expect_near(cross(out.turns[1].u, out.turns[1].v), {-0.01, 0, 0});
    expect_near(out.turns[1].centre, {2.65, 0.5, 0.5});
    std::vector<std::string> texts;
    for (const Label& label : out.labels) texts.push_back(label.text);
    EXPECT_EQ(texts,
              (std::vector<std::string>{"LEFT", "RIGHT", "1.234e+03[N]", "2.000e+00[N]", "2.000e+00[Nm]",
                                        "3.000e+00[N]", "0.000e+00[N]", "7.000e+00[Nm]"}));
    expect_near(out.labels[2].at, {2.8, 0.5, 0.5});
    expect_near(out.labels[6].at, {-0.5, 0.5, 0.5});
}

}  // namespace
