#include <numbers>

#include "mesh/merge_nodes.h"
#include "mesh/placement.h"
#include "mesh_checks.h"
#include "model/unjoined_nodes.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

Part box(const char* name, Vec3 origin, Vec3 size, const std::vector<int>& div = {1, 1, 1},
         Vec3 angles = {}) {
    Part part = make_part("RECT", {size[0], size[1], size[2]}, div);
    part.name = name;
    part.origin = origin;
    part.euler_angles = angles;
    return part;
}

TEST(Placement, RightAnglesAreExactAndOfAnySign) {
    using Matrix = std::array<std::array<double, 3>, 3>;
    EXPECT_EQ(euler_rotation({0, 0, 0}), (Matrix{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}));
    const Matrix quarter_z{{{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}}, quarter_x{{{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}},
        half_z_and_x{{{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}}};
    for (double turns : {-1080.0, -360.0, 0.0, 720.0, 36000000.0}) {
        EXPECT_EQ(euler_rotation({90 + turns, 0, 0}), quarter_z) << turns;
        EXPECT_EQ(euler_rotation({0, turns, turns - 270}), quarter_z) << turns;
        EXPECT_EQ(euler_rotation({-turns, turns + 90, 0}), quarter_x) << turns;
        EXPECT_EQ(euler_rotation({turns + 180, turns - 180, turns}), half_z_and_x) << turns;
    }
}

TEST(Placement, RotatesAboutZThenXThenZ) {
    // the product of the three single rotations, applied one after the other from the right
    const auto turn = [](Vec3 p, double degrees, int a, int b) {
        const double angle = degrees * std::numbers::pi / 180, c = std::cos(angle), s = std::sin(angle);
        const Vec3 q = p;
        p[a] = c * q[a] - s * q[b];
        p[b] = s * q[a] + c * q[b];
        return p;
    };
    const Mesh mesh = mesh_of({box("a", {5, 6, 7}, {1, 2, 3}, {1, 1, 1}, {20, -35, 70})});
    const Mesh local = mesh_of({box("a", {0, 0, 0}, {1, 2, 3})});
    for (std::int32_t n = 1; n <= 8; ++n) {
        const Vec3 expected = turn(turn(turn(point(local, n), 70, 0, 1), -35, 1, 2), 20, 0, 1);
        EXPECT_LT(norm(minus(minus(point(mesh, n), {5, 6, 7}), expected)), 1e-14);
    }
}

TEST(Merging, ShapesMeetWhereTheirStepsAgree) {
    const Part upper = make_part("ARCH", {1, 3, 1}, {4, 3, 2});
    Part lower = upper;
    lower.euler_angles = {180, 0, 0};
    const Mesh plate =
        mesh_of({upper, lower, box("side", {3, -3, 0}, {2, 6, 1}, {2, 6, 2}),
                 box("top", {-3, 3, 0}, {6, 2, 1}, {6, 2, 2}), make_part("CYLI", {1, 1}, {3, 2})});
    // per layer: two arches that share two rays, two boxes and the pin without their shared edges
    EXPECT_EQ(plate.node_num(), ((2 * 65 - 10) + (21 - 7) + (21 - 7) + (49 - 24)) * 3);
    EXPECT_EQ(count_bodies(plate), 1);
    EXPECT_NEAR(volume_inside_surface(plate), 36 + 12 + 12, 1e-12) << "the pin fills the hole without a gap";
    EXPECT_TRUE(find_unjoined_nodes(plate, SilentProgress()).empty());
    const Mesh rod =
        mesh_of({make_part("HOLLOWCYLI", {2, 1, 1}, {16, 2, 1}), make_part("CYLI", {1, 1}, {2, 1})});
    EXPECT_EQ(rod.node_num(), 16 * 3 * 2 + 25 * 2 - 16 * 2);
}

TEST(Merging, TakesTheToleranceFromTheSolidPartsExtent) {
    const TempFolder folder;
    const std::string facet =
        folder.write("far.stl",
                     "solid a facet normal 0 0 1 outer loop vertex 0 0 0 vertex 1000 0 0 "
                     "vertex 0 3 0 endloop endfacet endsolid");
    Part surface = make_part("STL", {}, {});
    surface.parent_name = surface.size_text[0] = facet;
    for (const auto& [gap, shared] : {std::pair{0.9e-6, true}, std::pair{1.1e-6, false}}) {
        const std::vector<Part> parts{box("a", {0, 0, 0}, {5, 1, 1}),
                                      box("b", {5 + 10 * gap, 0, 0}, {5, 1, 1}), surface};
        EXPECT_EQ(mesh_of({parts[0], parts[1]}).node_num(), shared ? 12 : 16);
        const Mesh mesh = mesh_of(parts);
        EXPECT_EQ(mesh.node_num(), 3 + (shared ? 12 : 16));
        EXPECT_EQ(mesh.max_length, 1000);
    }
    // a facet stands first in the file and at the place of a force: the solid's node takes it
    std::vector<AppliedForce> forces(3);
    forces[1].point = {0, 3, 0};
    forces[2].point = {0, 2, 0};
    EXPECT_EQ(resolve_force_points(mesh_of({surface, box("a", {0, 0, 0}, {1, 1, 1})}), forces),
              (std::vector<std::int32_t>{4, 3, 0}));
}

struct Merged : MergedNodes {
    Merged(const std::vector<double>& x, const std::vector<NodeRange>& parts, double tolerance) {
        std::pair<std::int32_t, std::int32_t> crowded;
        EXPECT_TRUE(merge_coincident_nodes(x, parts, tolerance, *this, crowded, SilentProgress()));
    }
};

TEST(Merging, NeitherDriftsAlongChainsNorJoinsNodesOfOnePart) {
    // three parts of one node each, 0.8 tolerances apart in a row; then two nodes of one part near one of
    // another
    const Merged row({0, 0, 0, 0.8, 0, 0, 1.6, 0, 0}, {{0, 1}, {1, 2}, {2, 3}}, 1);
    EXPECT_EQ(row.target, (std::vector<std::int32_t>{0, 0, 2}));
    const Merged close({0, 0, 0, 0.5, 0, 0, 0.1, 0, 0}, {{0, 1}, {1, 3}}, 1);
    EXPECT_EQ(close.target, (std::vector<std::int32_t>{0, 1, 0})) << "the closest one, the other stays";
}

TEST(Merging, FindsEveryPairWhereverTheCellsOfTheGridLie) {
    // a lattice coarser than the tolerance, its copy shifted by 0.98 of it along each axis, edge and diagonal
    for (int shift = 0; shift < 27; ++shift) {
        const int along[] = {shift % 3 - 1, shift / 3 % 3 - 1, shift / 9 - 1};
        const double step =
            0.0098 / std::sqrt(std::max(1, std::abs(along[0]) + std::abs(along[1]) + std::abs(along[2])));
        std::vector<double> x;
        for (int copy : {0, 1})
            for (int n = 0; n < 343; ++n)
                for (int k = 0, rest = n; k < 3; ++k, rest /= 7)
                    x.push_back(0.0337 * (rest % 7) - 0.1 + copy * along[k] * step);
        EXPECT_EQ(Merged(x, {{0, 343}, {343, 686}}, 0.01).merged, 343) << "each node of the copy has one";
    }
}

TEST(Merging, PrintsThePartsAndWhichOfThemShareNodes) {
    // b and c meet a; all three meet on the edge x = 1, y = 1
    const Built built = build({box("a", {0, 0, 0}, {1, 1, 1}), box("alone", {9, 9, 9}, {1, 1, 1}, {1, 2, 1}),
                               box("b", {1, 0, 0}, {1, 1, 1}), box("c", {0, 1, 0}, {1, 1, 1})});
    for (const char* lines :
         {"point_num_temp=20\nelement_num_temp=3\ni_part=1, material_id = 0\nNelem1=2, Nnode1=12\n"
          "RECT:EULER_ANG=0.000e+00,0.000e+00,0.000e+00\norigin=9.000e+00,9.000e+00,9.000e+00\npart_type:0\n",
          "element_type=0\nmatch_node_num=8\npart:0\npart:0, 2\npart:0, 3\npart:2\npart:2, 3\n"
          "element_num=5,point_num=28,fn=84\n"})
        EXPECT_TRUE(contains(built.lines, lines)) << built.lines;
    EXPECT_EQ(built.mesh.p_ele_part_id, (std::vector<std::int32_t>{0, 1, 1, 2, 3}));
}

TEST(Unjoined, CountsTheNodesOnFacesOfTheOtherPart) {
    const auto contacts = [](const std::vector<Part>& parts) {
        return find_unjoined_nodes(mesh_of(parts), SilentProgress());
    };
    for (const Vec3& angles : {Vec3{0, 0, 0}, Vec3{30, 40, 50}}) {
        const auto R = euler_rotation(angles);
        const Vec3 place{R[0][0], R[1][0], R[2][0]};
        const auto three = contacts({box("two", {0, 0, 0}, {1, 1, 1}, {2, 2, 2}, angles),
                                     box("three", place, {1, 1, 1}, {3, 3, 3}, angles)});
        ASSERT_EQ(three.size(), 1u);
        EXPECT_EQ(three[0].part, (std::array<std::int32_t, 2>{0, 1}));
        EXPECT_EQ(three[0].nodes, (std::array<std::int64_t, 2>{5, 12}));  // the corners are joined
        EXPECT_EQ(three[0].joined, 4);
        EXPECT_EQ(three[0].first_node, 6);  // x 1, y 0.5, z 0
    }
    const Part two = box("two", {0, 0, 0}, {1, 1, 1}, {2, 2, 2});
    using Nodes = std::array<std::int64_t, 2>;
    // the fine face has more nodes than the coarse one
    EXPECT_EQ(contacts({two, box("four", {1, 0, 0}, {1, 1, 1}, {4, 4, 4})})[0].nodes, (Nodes{0, 16}));
    // 1e-6 of the extent apart still counts, more does not
    EXPECT_EQ(contacts({two, box("near", {1 + 1.9e-6, 0.1, 0.1}, {1, 0.5, 0.5})})[0].nodes, (Nodes{1, 4}));
    EXPECT_TRUE(contacts({two, box("apart", {1 + 2.5e-6, 0.1, 0.1}, {1, 0.5, 0.5})}).empty());
    // the end of a cylinder inside a face, its axis on a node
    Part rod = make_part("CYLI", {0.25, 1}, {2, 1});
    rod.origin = {0.5, 0.5, 1};
    EXPECT_EQ(contacts({two, rod})[0].nodes, (Nodes{0, 24}));
    EXPECT_EQ(contacts({two, rod})[0].joined, 1);
}

TEST(Assembly, RefusesPartsBelowTheMergingDistanceAndTwoElementTypes) {
    // a slip of the unit puts one part a million times further away than the others are wide
    const Part a = box("a", {0, 0, 0}, {1, 1, 1}, {30, 30, 30});
    EXPECT_TRUE(contains(
        errors_of({a, box("b", {1, 0, 0}, {1, 1, 1}, {30, 30, 30}), box("far", {1e9, 0, 0}, {1, 1, 1})}),
        "check units and origins"));
    Part tetrahedra = make_part("VOL", {}, {});
    tetrahedra.parent_name = KESTRALUM_SOURCE_DIR "/data/netgen/cube_csg_o1.vol";
    EXPECT_TRUE(contains(errors_of({a, tetrahedra}), "one element type"));
    const Mesh empty = mesh_of({});
    EXPECT_EQ(empty.node_num() + empty.element_num(), 0);
    EXPECT_EQ(empty.max_length, 1.0);
}

}  // namespace
