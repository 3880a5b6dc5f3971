#include <numbers>

#include "mesh/merge_nodes.h"
#include "mesh/placement.h"
#include "mesh_checks.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

Part box(const char* name, Vec3 origin, Vec3 size, std::array<int, 3> div = {1, 1, 1},
         Vec3 angles = {0, 0, 0}) {
    Part part = make_part("RECT", {size[0], size[1], size[2]}, {div[0], div[1], div[2]});
    part.name = name;
    part.origin = origin;
    part.euler_angles = angles;
    return part;
}

TEST(Placement, RightAnglesAreExactAndOfAnySign) {
    using Matrix = std::array<std::array<double, 3>, 3>;
    const Matrix identity{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    const Matrix quarter_z{{{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}};
    const Matrix quarter_x{{{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}};
    EXPECT_EQ(euler_rotation({0, 0, 0}), identity);
    for (double turns : {-1080.0, -360.0, 0.0, 720.0, 36000000.0}) {
        EXPECT_EQ(euler_rotation({90 + turns, 0, 0}), quarter_z) << turns;
        EXPECT_EQ(euler_rotation({0, turns, turns - 270}), quarter_z) << turns;
        EXPECT_EQ(euler_rotation({-turns, turns + 90, 0}), quarter_x) << turns;
        EXPECT_EQ(euler_rotation({turns + 180, turns - 180, turns}),
                  (Matrix{{{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}}}))
            << turns;
    }
}

TEST(Placement, RotatesAboutZThenXThenZ) {
    // the product of the three single rotations, applied one after the other from the right
    const Vec3 angles{20, -35, 70};
    auto turn = [](Vec3 p, double degrees, std::size_t a, std::size_t b) {
        const double c = std::cos(degrees * std::numbers::pi / 180),
                     s = std::sin(degrees * std::numbers::pi / 180);
        const Vec3 q = p;
        p[a] = c * q[a] - s * q[b];
        p[b] = s * q[a] + c * q[b];
        return p;
    };
    const Part part = box("a", {5, 6, 7}, {1, 2, 3}, {1, 1, 1}, angles);
    const Mesh mesh = mesh_of({part});
    const Mesh local = mesh_of({box("a", {0, 0, 0}, {1, 2, 3})});
    for (std::int32_t n = 1; n <= 8; ++n) {
        const Vec3 expected =
            turn(turn(turn(point(local, n), angles[2], 0, 1), angles[1], 1, 2), angles[0], 0, 1);
        for (std::size_t k = 0; k < 3; ++k)
            EXPECT_NEAR(point(mesh, n)[k], expected[k] + part.origin[k], 1e-14);
    }
}

TEST(Merging, TwoBoxesShareTheirFace) {
    const auto [good, mesh, remarks, lines] =
        build({box("left", {0, 0, 0}, {1, 1, 1}, {2, 3, 4}), box("right", {1, 0, 0}, {2, 1, 1}, {3, 3, 4})});
    ASSERT_TRUE(good);
    EXPECT_EQ(mesh.node_num(), 3 * 4 * 5 + 4 * 4 * 5 - 4 * 5);
    EXPECT_EQ(mesh.element_num(), 24 + 36);
    EXPECT_EQ(mesh.dof_num(), 3 * mesh.node_num());
    EXPECT_EQ(mesh.p_ele_part_id[23], 0);
    EXPECT_EQ(mesh.p_ele_part_id[24], 1);
    EXPECT_EQ(mesh.max_length, 3.0);
    EXPECT_EQ(count_bodies(mesh), 1);
    EXPECT_NEAR(volume_inside_surface(mesh), 3.0, 1e-12);
    EXPECT_EQ(lines,
              "max_length=3.000e+00\n"
              "part_type:0\npoint_num_temp=60\nelement_num_temp=24\ni_part=0, material_id = 0\nNelem1=24, "
              "Nnode1=60\n"
              "RECT:EULER_ANG=0.000e+00,0.000e+00,0.000e+00\norigin=0.000e+00,0.000e+00,0.000e+00\n"
              "part_type:0\npoint_num_temp=140\nelement_num_temp=60\ni_part=1, material_id = 0\nNelem1=36, "
              "Nnode1=80\n"
              "RECT:EULER_ANG=0.000e+00,0.000e+00,0.000e+00\norigin=1.000e+00,0.000e+00,0.000e+00\n"
              "element_type=0\nmatch_node_num=20\npart:0\npart:0, 1\nelement_num=60,point_num=120,fn=360\n");
}

TEST(Merging, ShapesMeetWhereTheirStepsAgree) {
    Part lower = make_part("ARCH", {1, 3, 1}, {4, 3, 2});
    Part upper = lower;
    lower.euler_angles = {180, 0, 0};
    const Mesh plate =
        mesh_of({upper, lower, box("side", {3, -3, 0}, {2, 6, 1}, {2, 6, 2}),
                 box("top", {-3, 3, 0}, {6, 2, 1}, {6, 2, 2}), make_part("CYLI", {1, 1}, {3, 2})});
    // per layer: two arches that share two rays, two boxes and the pin without their shared edges
    EXPECT_EQ(plate.node_num(), ((2 * 65 - 10) + (21 - 7) + (21 - 7) + (49 - 24)) * 3);
    EXPECT_EQ(count_bodies(plate), 1);
    EXPECT_NEAR(volume_inside_surface(plate), 36 + 12 + 12, 1e-12) << "the pin fills the hole without a gap";
    const Mesh rod =
        mesh_of({make_part("HOLLOWCYLI", {2, 1, 1}, {16, 2, 1}), make_part("CYLI", {1, 1}, {2, 1})});
    EXPECT_EQ(rod.node_num(), 16 * 3 * 2 + 25 * 2 - 16 * 2);
}

TEST(Merging, TakesTheToleranceFromTheModelsExtent) {
    for (const auto& [gap, shared] : {std::pair{0.9e-6, true}, std::pair{1.1e-6, false}}) {
        const Mesh mesh =
            mesh_of({box("a", {0, 0, 0}, {5, 1, 1}), box("b", {5 + 10 * gap, 0, 0}, {5, 1, 1})});
        EXPECT_EQ(mesh.node_num(), shared ? 12 : 16);
    }
}

TEST(Merging, NeitherDriftsAlongChainsNorJoinsNodesOfOnePart) {
    const double tol = 1e-3;
    // three parts of one node each, 0.8 tolerances apart in a row; then two nodes of one part near one of
    // another
    const std::vector<double> row{0, 0, 0, 0.8 * tol, 0, 0, 1.6 * tol, 0, 0};
    const std::vector<NodeRange> single{{0, 1}, {1, 2}, {2, 3}};
    MergedNodes merged;
    std::pair<std::int32_t, std::int32_t> crowded;
    ASSERT_TRUE(merge_coincident_nodes(row, single, tol, merged, crowded, SilentProgress()));
    EXPECT_EQ(merged.target, (std::vector<std::int32_t>{0, 0, 2}));

    const std::vector<double> close{0, 0, 0, 0.5 * tol, 0, 0, 0.1 * tol, 0, 0};
    const std::vector<NodeRange> one_and_two{{0, 1}, {1, 3}};
    ASSERT_TRUE(merge_coincident_nodes(close, one_and_two, tol, merged, crowded, SilentProgress()));
    EXPECT_EQ(merged.target, (std::vector<std::int32_t>{0, 1, 0}))
        << "the closest one is taken, the other stays";
}

TEST(Merging, FindsEveryPairWhereverTheCellsOfTheGridLie) {
    // a lattice coarser than the tolerance, its copy shifted by up to 0.57 tolerances in each direction
    const double tol = 0.01;
    for (int shift = 0; shift < 27; ++shift) {
        std::vector<double> x;
        for (int copy : {0, 1})
            for (int n = 0; n < 343; ++n)
                for (int k = 0, rest = n, s = shift; k < 3; ++k, rest /= 7, s /= 3)
                    x.push_back(0.0331 * (rest % 7) - 0.1 + copy * (s % 3 - 1) * 0.57 * tol);
        const std::vector<NodeRange> parts{{0, 343}, {343, 686}};
        MergedNodes merged;
        std::pair<std::int32_t, std::int32_t> crowded;
        ASSERT_TRUE(merge_coincident_nodes(x, parts, tol, merged, crowded, SilentProgress()));
        EXPECT_EQ(merged.merged, 343) << "each node of the copy has exactly one within the tolerance";
    }
}

TEST(Merging, SaysWhichPartsShareNodes) {
    // b and c meet a; all three meet on the edge x = 1, y = 1
    const Built built = build({box("a", {0, 0, 0}, {1, 1, 1}), box("alone", {9, 9, 9}, {1, 1, 1}),
                               box("b", {1, 0, 0}, {1, 1, 1}), box("c", {0, 1, 0}, {1, 1, 1})});
    EXPECT_TRUE(contains(built.lines,
                         "match_node_num=8\npart:0\npart:0, 2\npart:0, 3\npart:2\n"
                         "part:2, 3\nelement_num=4"))
        << built.lines;
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
}

TEST(Assembly, AModelWithoutPartsIsEmpty) {
    const Mesh mesh = mesh_of({});
    EXPECT_EQ(mesh.node_num() + mesh.element_num(), 0);
    EXPECT_EQ(mesh.max_length, 1.0);
}

}  // namespace
