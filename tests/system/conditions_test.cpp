// Supports and loads on a small grid whose selections can be counted by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "conditions/constraints.h"
#include "conditions/loads.h"
#include "elements/elasticity.h"
#include "model/selection.h"
#include "support/assembled.h"
#include "support/box_mesh.h"
#include "support/collected.h"
#include "support/text_checks.h"
#include "system/diagonals.h"

namespace kestralum {
namespace {

using testing::Grid;

BoundaryCondition support(Selection kind, std::int32_t axis, const std::array<double, 6>& box) {
    return {.kind = kind, .axis = axis, .box = box};
}

struct Supported : DofNumbering {
    std::int32_t fn_free;  // as the console tells it
};

Supported supported(const Mesh& mesh, std::span<const BoundaryCondition> records, Progress& progress) {
    std::int32_t fn_free = mesh.dof_num();
    DofNumbering numbering =
        apply_boundary_conditions(records, mesh, elements_of_nodes(mesh), {}, fn_free, progress);
    return {std::move(numbering), fn_free};
}

TEST(Supports, SelectByPlaneRectangleAndBox) {
    const Mesh mesh = testing::hexa_box({{2, 2, 2}, {1, 1, 1}});  // nodes at 0, 0.5, 1
    const struct {
        BoundaryCondition record;
        int nodes;
        const char* line;
    } cases[] = {
        {support(Selection::plane, 2, {0, 0, 0, 0, 7, 0.5}), 9, "  2\n"},  // the pair's max
        {support(Selection::plane, 0, {0, 1 + 0.9e-10, 0, 0, 0, 0}), 9, "  0\n"},
        {support(Selection::plane, 0, {0, 1 + 1.1e-10, 0, 0, 0, 0}), 0, "  0\n"},
        {support(Selection::area, 1, {0, 0.5, 0, 1, 0, 1}), 6, "  1:0,2\n"},
        {support(Selection::area, 1, {0, 0.5, 0, 1 + 1e-12, 0, 1}), 0, "  1:0,2\n"},  // exact on the normal
        {support(Selection::area, 0, {0, 1, 0.9e-10, 0.5 - 0.9e-10, 0, 1}), 6, "  0:1,2\n"},
        {support(Selection::area, 2, {0, 0.4, 0, 0.4, 0, 0}), 1, "  2:0,1\n"},
        {support(Selection::volume, 0, {-1, 0.9e-6 + 0, -1, 2, -1, 2}), 9, ""},
        {support(Selection::volume, 0, {0.5 + 0.9e-6, 1, 0, 1, 0, 1}), 18, ""},
        {support(Selection::volume, 0, {0.5 + 1.1e-6, 1, 0, 1, 0, 1}), 9, ""},
        {support(Selection::volume, 0, {1, 0, 0, 1, 0, 1}), 0, ""},  // min > max
        {support(static_cast<Selection>(9), 0, {0, 1, 0, 1, 0, 1}), 0, ""},
    };
    for (const auto& c : cases) {
        testing::Collected captured;
        const Supported numbering = supported(mesh, std::span(&c.record, 1), captured);
        EXPECT_EQ(numbering.fix_node_num(), c.nodes) << &c - cases;
        EXPECT_EQ(numbering.fn_free, mesh.dof_num() - 3 * c.nodes);
        EXPECT_EQ(std::ssize(numbering.free_dofs), numbering.fn_free);
        EXPECT_TRUE(captured.lines.starts_with(std::string("Boundary Condition\n") + c.line +
                                               "fix_node_num=" + std::to_string(c.nodes) + "\n"))
            << captured.lines;
        EXPECT_TRUE(captured.lines.ends_with("\nfree_degree\nfree_degree\n"));
        for (std::size_t k = 0; k < numbering.free_dofs.size(); ++k)
            EXPECT_EQ(numbering.dof_map[numbering.free_dofs[k]], k);
    }
}

// Nodes selected twice lower the count twice but are fixed once; a node on no element is eliminated without
// being counted: a support fixes it, but not twice, and holds nothing.
TEST(Supports, TwiceSelectedAndHangingNodesAreCountedApart) {
    SilentProgress silent;
    const BoundaryCondition foot = support(Selection::plane, 2, {}), side = support(Selection::plane, 0, {}),
                            loose = support(Selection::plane, 2, {0, 0, 0, 0, 0, 5});
    const struct {
        int hanging;
        std::vector<BoundaryCondition> records;
        int listed, fn_free, free, repeated;
    } cases[] = {{0, {foot, side}, 8, 0, 6, 2}, {1, {}, 0, 27, 24, 0}, {1, {loose}, 1, 24, 24, 0}};
    for (const auto& c : cases) {
        Mesh mesh = testing::hexa_box({{1, 1, 1}, {1, 1, 1}});
        if (c.hanging) mesh.coordinates.insert(mesh.coordinates.end(), {5, 5, 5});
        const Supported numbering = supported(mesh, c.records, silent);
        EXPECT_EQ(numbering.hanging_nodes, c.hanging);
        EXPECT_EQ(numbering.fix_node_num(), c.listed);
        EXPECT_EQ(numbering.fn_free, c.fn_free);
        EXPECT_EQ(numbering.free_dofs.size(), c.free);
        EXPECT_EQ(numbering.repeated_nodes(), c.repeated);
        EXPECT_TRUE(!c.hanging || numbering.dof_map[26] == -1);
        for (const std::int32_t selected : numbering.selected) EXPECT_EQ(selected, c.hanging ? 0 : 4);
    }
}

AppliedForce point_force(const Vec3& at, std::int32_t axis, double value) {
    return {.kind = ForceKind::node, .axis = axis, .value = value, .point = at};
}

AppliedForce area_force(const std::array<double, 6>& box, std::int32_t axis, double value) {
    return {.kind = ForceKind::area, .axis = axis, .value = value, .box = box};
}

const Material steel{.id = 0, .name = "S", .density = 7800, .young = 2e11, .poisson = 0.3};

struct Loaded : LoadVector {
    Mesh mesh;
    double at(double x, double y, double z, int axis) const {
        const std::int32_t n = nearest_node(mesh, elements_of_nodes(mesh), std::array{x, y, z});
        EXPECT_EQ(triple(mesh.coordinates, n), (Vec3{x, y, z}));
        return nodal[3 * n + axis];
    }
    double sum() const { return std::accumulate(nodal.begin(), nodal.end(), 0.0); }
};

// With the nodes at z = 0 clamped.
Loaded load(const Mesh& mesh, const std::vector<AppliedForce>& forces, Progress& progress) {
    SilentProgress silent;
    const BoundaryCondition clamp = support(Selection::plane, 2, {});
    const Supported numbering = supported(mesh, std::span(&clamp, 1), silent);
    SparseKM km = testing::assemble(mesh, steel, build_elasticity(std::span(&steel, 1), silent));
    eliminate_fixed(numbering.dof_map, km, silent);
    const NodeElements around = elements_of_nodes(mesh);
    return {build_loads(forces, resolve_force_points(mesh, forces), {mesh, around, numbering, {}},
                        diagonal_of(km), progress),
            mesh};
}

Loaded load(ElementKind kind, const std::vector<AppliedForce>& forces, Progress& progress) {
    return load(testing::box_mesh({{2, 2, 2}, {1, 1, 1}}, kind), forces, progress);
}

TEST(Loads, PointForcesAssignAndAFixedOneIsTold) {
    testing::Collected captured;
    const Loaded loaded = load(ElementKind::hexahedron,
                               {point_force({1, 1, 1}, 0, 5), point_force({1, 1 + 0.9e-7, 1}, 0, 7),
                                point_force({1, 1, 1 + 1.1e-7}, 0, 11), point_force({0, 0, 0}, 2, 13)},
                               captured);
    EXPECT_EQ(loaded.at(1, 1, 1, 0), 7) << "the later of two on one degree of freedom stands";
    for (const int k : {0, 1, 2, 3}) EXPECT_EQ(loaded.records[k].reached, k != 2);
    EXPECT_EQ(loaded.records[3].on_fixed, 1);
    EXPECT_EQ(loaded.sum(), 7);
    EXPECT_TRUE(testing::contains(
        captured.lines,
        "Force Number 4\n### ERROR ###\nSome force vectors are applied at fixed degree points.\n"));
}

TEST(Loads, AreaForcesFollowTheStiffnessOnHexahedraAndAreEvenOnTetrahedra) {
    testing::Collected captured;
    const AppliedForce top = area_force({0, 1, 0, 1, 1, 1}, 2, 900);
    const Loaded hexa = load(ElementKind::hexahedron, {top}, captured);
    // by symmetry: four corners, four edge middles, one centre, in the ratio of the diagonal of K:
    // 1 : 2 : 4 for a uniform grid
    EXPECT_NEAR(hexa.at(0, 0, 1, 2), 900.0 / 16, 1e-9);
    EXPECT_NEAR(hexa.at(0.5, 0, 1, 2), 900.0 / 8, 1e-9);
    EXPECT_NEAR(hexa.at(0.5, 0.5, 1, 2), 900.0 / 4, 1e-9);
    EXPECT_TRUE(testing::contains(captured.lines,
                                  "  points in area:9\n   area_force=9.000e+02,force_value=9.000e+02\n"));

    const Loaded tetra = load(ElementKind::tetrahedron4, {area_force({1, 1, 0, 1, 0, 1}, 0, 60)}, captured);
    EXPECT_EQ(tetra.records[0].reached, 9);
    EXPECT_EQ(tetra.records[0].on_fixed, 3) << "nodes of the clamp take no share";
    EXPECT_EQ(tetra.at(1, 0, 0, 0), 0);
    EXPECT_EQ(tetra.at(1, 0.5, 0.5, 0), 10);
    const Loaded nothing =
        load(ElementKind::tetrahedron10, {area_force({3, 4, 3, 4, 3, 4}, 0, 60)}, captured);
    EXPECT_EQ(nothing.records[0].reached, 0);
    EXPECT_EQ(std::ranges::count(nothing.nodal, 0), std::ssize(nothing.nodal));
}

// Two faces with a common edge: the later record takes the edge's nodes, the first one keeps two thirds of
// -1000 N.
TEST(Loads, AnAreaThatALaterOneOverlapsLosesTheCommonNodesShare) {
    SilentProgress silent;
    const Loaded both =
        load(ElementKind::tetrahedron4,
             {area_force({0, 1, 0, 1, 1, 1}, 2, -1000), area_force({1, 1, 0, 1, 0, 1}, 2, -1000)}, silent);
    const LoadedRecord &top = both.records[0], &side = both.records[1];
    EXPECT_EQ(top.replaced, 3);
    EXPECT_NEAR(top.applied, -1000 * 6 / 9.0, 1e-9);
    EXPECT_EQ(side.replaced, 0);
    EXPECT_NEAR(side.applied, -1000, 1e-9);
    EXPECT_NEAR(both.sum(), top.applied + side.applied, 1e-9);
}

// Cells half as wide on one side: as many nodes there share the force evenly, and its resultant moves there.
TEST(Loads, UnevenNodesPutTheResultantOffTheMiddle) {
    SilentProgress silent;
    const AppliedForce top = area_force({0, 1, 0, 1, 1, 1}, 2, 600);
    const auto squeeze = [](double* x) { x[0] = x[0] < 0.6 && x[0] > 0.1 ? 0.2 : x[0]; };
    const Grid uneven{{2, 2, 2}, {1, 1, 1}, squeeze};
    const LoadedRecord even = load(ElementKind::tetrahedron4, {top}, silent).records[0],
                       off = load(testing::box_mesh(uneven, ElementKind::tetrahedron4), {top}, silent)
                                 .records[0];
    EXPECT_NEAR(even.arm, 0, 1e-12);
    EXPECT_NEAR(off.arm, 0.5 - (0 + 0.2 + 1) / 3, 1e-12);
    EXPECT_NEAR(off.moment[1], 600 * off.arm, 1e-9) << "(x - middle) × F along z turns about y";
    EXPECT_NEAR(off.size, 1, 1e-12);
}

// What the explicit analysis takes from [K] and [M] without making them, against the assembled matrices.
TEST(Diagonals, AreThoseOfTheAssembledMatrices) {
    SilentProgress silent;
    for (const ElementKind kind : testing::every_kind) {
        const Mesh mesh =
            testing::box_mesh({{20, 15, 17}, {1, 0.7, 0.9}}, kind);  // more nodes than one portion
        const NodeElements around = elements_of_nodes(mesh);
        const Elasticity elasticity = build_elasticity(std::span(&steel, 1), silent);
        const SparseKM km = testing::assemble(mesh, steel, elasticity);
        std::vector<std::int32_t> map(mesh.dof_num(), 0);
        for (std::int32_t d = 0; d < mesh.dof_num(); d += 7) map[d] = -1;
        const PartMaterial material{moduli(elasticity, 0), steel.density};
        for (const int threads : {1, 2}) {
            const MatrixDiagonals sums =
                matrix_diagonals(mesh, std::span(&material, 1), map, threads, silent);
            double stiffness = 0;
            for (std::int32_t r = 0; r < km.rows(); ++r) {
                EXPECT_NEAR(sums.K[r] / km.K_value[km.diag_pos[r]], 1, 1e-14);
                EXPECT_NEAR(sums.M[r] / km.M_value[km.diag_pos[r]], 1, 1e-14);
                for (std::int64_t k = km.row_start[r]; k < km.row_start[r] + km.row_count[r]; ++k)
                    if (map[r] >= 0 && map[km.col_index[k]] >= 0) stiffness += km.K_value[k];
            }
            EXPECT_NEAR(sums.mass_sum / (3 * steel.density * 1 * 0.7 * 0.9), 1, 1e-12);
            EXPECT_NEAR(sums.stiffness_sum / stiffness, 1, 1e-10);
        }
    }
}

}  // namespace
}  // namespace kestralum
