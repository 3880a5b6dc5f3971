// Supports and loads on a small grid whose selections can be counted by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "conditions/constraints.h"
#include "conditions/loads.h"
#include "elements/elasticity.h"
#include "support/assembled.h"
#include "support/box_mesh.h"
#include "support/collected.h"
#include "system/diagonals.h"

namespace kestralum {
namespace {

using testing::Grid;

BoundaryCondition support(Selection kind, std::int32_t axis, std::array<double, 6> box) {
    BoundaryCondition record;
    record.kind = kind;
    record.axis = axis;
    record.box = box;
    return record;
}

TEST(Supports, SelectByPlaneRectangleAndBox) {
    testing::Collected captured;
    Mesh mesh = testing::hexa_box({{2, 2, 2}, {1, 1, 1}});  // nodes at 0, 0.5, 1
    const NodeElements around = elements_of_nodes(mesh);
    struct Case {
        BoundaryCondition record;
        int nodes;
        const char* line;
    };
    const Case cases[] = {
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
    for (const Case& c : cases) {
        captured.lines.clear();
        std::int32_t fn_free = mesh.dof_num();
        const DofNumbering numbering =
            apply_boundary_conditions(std::span(&c.record, 1), mesh, around, fn_free, captured);
        EXPECT_EQ(numbering.fix_node_num(), c.nodes) << &c - cases;
        EXPECT_EQ(fn_free, mesh.dof_num() - 3 * c.nodes);
        EXPECT_EQ(static_cast<std::int32_t>(numbering.free_dofs.size()), fn_free);
        EXPECT_TRUE(captured.lines.starts_with(std::string("Boundary Condition\n") + c.line +
                                               "fix_node_num=" + std::to_string(c.nodes) + "\n"))
            << captured.lines;
        EXPECT_TRUE(captured.lines.ends_with("\nfree_degree\nfree_degree\n"));
        for (std::size_t k = 0; k < numbering.free_dofs.size(); ++k)
            EXPECT_EQ(numbering.dof_map[static_cast<std::size_t>(numbering.free_dofs[k])],
                      static_cast<std::int32_t>(k));
    }
}

TEST(Supports, TwiceSelectedNodesLowerTheCountTwiceButAreFixedOnce) {
    SilentProgress captured;
    Mesh mesh = testing::hexa_box({{1, 1, 1}, {1, 1, 1}});
    const BoundaryCondition records[] = {support(Selection::plane, 2, {0, 0, 0, 0, 0, 0}),
                                         support(Selection::plane, 0, {0, 0, 0, 0, 0, 0})};
    std::int32_t fn_free = 24;
    const DofNumbering numbering =
        apply_boundary_conditions(records, mesh, elements_of_nodes(mesh), fn_free, captured);
    EXPECT_EQ(numbering.fix_node_num(), 8);
    EXPECT_EQ(fn_free, 0);
    EXPECT_EQ(numbering.free_dofs.size(), 6u);  // two nodes on neither plane
    EXPECT_EQ(numbering.repeated_nodes(), 2);
}

TEST(Supports, NodesOnNoElementAreEliminatedWithoutBeingCounted) {
    SilentProgress captured;
    Mesh mesh = testing::hexa_box({{1, 1, 1}, {1, 1, 1}});
    mesh.coordinates.insert(mesh.coordinates.end(), {5, 5, 5});
    std::int32_t fn_free = 27;
    const DofNumbering numbering =
        apply_boundary_conditions({}, mesh, elements_of_nodes(mesh), fn_free, captured);
    EXPECT_EQ(numbering.hanging_nodes, 1);
    EXPECT_EQ(numbering.fix_node_num(), 0);
    EXPECT_EQ(fn_free, 27);
    EXPECT_EQ(numbering.free_dofs.size(), 24u);
    EXPECT_EQ(numbering.dof_map[26], -1);
    // a support on such a node fixes it, but not twice, and holds nothing
    const BoundaryCondition record = support(Selection::plane, 2, {0, 0, 0, 0, 0, 5});
    fn_free = 27;
    const DofNumbering held =
        apply_boundary_conditions(std::span(&record, 1), mesh, elements_of_nodes(mesh), fn_free, captured);
    EXPECT_EQ(held.fix_node_num(), 1);
    EXPECT_EQ(held.selected[0], 0);
    EXPECT_EQ(held.repeated_nodes(), 0);
    EXPECT_EQ(held.free_dofs.size(), 24u);
}

AppliedForce point_force(std::array<double, 3> at, std::int32_t axis, double value) {
    AppliedForce force;
    force.kind = ForceKind::node;
    force.point = at;
    force.axis = axis;
    force.value = value;
    return force;
}

AppliedForce area_force(std::array<double, 6> box, std::int32_t axis, double value) {
    AppliedForce force;
    force.kind = ForceKind::area;
    force.box = box;
    force.axis = axis;
    force.value = value;
    return force;
}

struct Loaded {
    Mesh mesh;
    NodeElements around;
    DofNumbering numbering;
    SparseKM km;
    LoadVector load;
    double at(double x, double y, double z, int axis) const {
        for (std::int32_t n = 0; n < mesh.node_num(); ++n)
            if (mesh.node(n)[0] == x && mesh.node(n)[1] == y && mesh.node(n)[2] == z) {
                const std::int32_t k = numbering.dof_map[3 * n + axis];
                return k < 0 ? 0 : load.F[k];
            }
        ADD_FAILURE() << "no such node";
        return 0;
    }
    std::vector<std::int32_t> reached() const {
        std::vector<std::int32_t> out;
        for (const LoadedRecord& record : load.records) out.push_back(record.reached);
        return out;
    }
};

Loaded load(Mesh mesh, const std::vector<AppliedForce>& forces, Progress& progress) {
    Loaded out;
    out.mesh = std::move(mesh);
    out.around = elements_of_nodes(out.mesh);
    const Material steel{.id = 0, .name = "S", .density = 1, .young = 1e9, .poisson = 0.3};
    const BoundaryCondition clamp = support(Selection::plane, 2, {0, 0, 0, 0, 0, 0});
    std::int32_t fn_free = out.mesh.dof_num();
    SilentProgress silent;
    out.numbering = apply_boundary_conditions(std::span(&clamp, 1), out.mesh, out.around, fn_free, silent);
    out.km = testing::assemble(out.mesh, steel, build_elasticity(std::span(&steel, 1), silent));
    eliminate_fixed(out.numbering.dof_map, out.km, silent);
    out.load = build_loads(forces, resolve_force_points(out.mesh, forces), out.mesh, out.around,
                           out.numbering, diagonal_of(out.km), progress);
    return out;
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
    EXPECT_EQ(loaded.reached(), (std::vector<std::int32_t>{1, 1, 0, 1}));
    EXPECT_EQ(loaded.load.records[3].on_fixed, 1);
    double sum = 0;
    for (double f : loaded.load.F) sum += f;
    EXPECT_EQ(sum, 7);
    EXPECT_NE(captured.lines.find(
                  "Force Number 4\n### ERROR ###\nSome force vectors are applied at fixed degree points.\n"),
              std::string::npos);
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
    EXPECT_NE(captured.lines.find("  points in area:9\n   area_force=9.000e+02,force_value=9.000e+02\n"),
              std::string::npos);

    const Loaded tetra = load(ElementKind::tetrahedron4, {area_force({1, 1, 0, 1, 0, 1}, 0, 60)}, captured);
    EXPECT_EQ(tetra.load.records[0].reached, 9);
    EXPECT_EQ(tetra.load.records[0].on_fixed, 3) << "nodes of the clamp take no share";
    EXPECT_EQ(tetra.at(1, 0, 0, 0), 0);
    EXPECT_EQ(tetra.at(1, 0.5, 0.5, 0), 10);
    const Loaded nothing =
        load(ElementKind::tetrahedron10, {area_force({3, 4, 3, 4, 3, 4}, 0, 60)}, captured);
    EXPECT_EQ(nothing.load.records[0].reached, 0);
    for (double f : nothing.load.F) EXPECT_EQ(f, 0);
}

// Two faces with a common edge: the later record takes the edge's nodes, the first one keeps two thirds of
// -1000 N.
TEST(Loads, AnAreaThatALaterOneOverlapsLosesTheCommonNodesShare) {
    SilentProgress silent;
    const Loaded both =
        load(ElementKind::tetrahedron4,
             {area_force({0, 1, 0, 1, 1, 1}, 2, -1000), area_force({1, 1, 0, 1, 0, 1}, 2, -1000)}, silent);
    const LoadedRecord &top = both.load.records[0], &side = both.load.records[1];
    EXPECT_EQ(top.replaced, 3);
    EXPECT_NEAR(top.applied, -1000 * 6 / 9.0, 1e-9);
    EXPECT_EQ(side.replaced, 0);
    EXPECT_NEAR(side.applied, -1000, 1e-9);
    double sum = 0;
    for (double f : both.load.F) sum += f;
    EXPECT_NEAR(sum, top.applied + side.applied, 1e-9);
}

// Cells half as wide on one side: as many nodes there share the force evenly, and its resultant moves there.
TEST(Loads, UnevenNodesPutTheResultantOffTheMiddle) {
    SilentProgress silent;
    const AppliedForce top = area_force({0, 1, 0, 1, 1, 1}, 2, 600);
    const auto squeeze = [](double* x) { x[0] = x[0] < 0.6 && x[0] > 0.1 ? 0.2 : x[0]; };
    const Grid uneven{{2, 2, 2}, {1, 1, 1}, squeeze};
    const LoadedRecord even = load(ElementKind::tetrahedron4, {top}, silent).load.records[0],
                       off = load(testing::tetra_box(uneven, ElementKind::tetrahedron4), {top}, silent)
                                 .load.records[0];
    EXPECT_NEAR(even.arm, 0, 1e-12);
    EXPECT_NEAR(off.arm, 0.5 - (0 + 0.2 + 1) / 3, 1e-12);
    EXPECT_NEAR(off.moment[1], 600 * off.arm, 1e-9) << "(x - middle) × F along z turns about y";
    EXPECT_NEAR(off.size, 1, 1e-12);
}

// What the explicit analysis takes from [K] and [M] without making them, against the assembled matrices.
TEST(Diagonals, AreThoseOfTheAssembledMatricesToTheLastBit) {
    SilentProgress silent;
    const Material steel{.id = 0, .name = "S", .density = 7800, .young = 2e11, .poisson = 0.3};
    for (const ElementKind kind : testing::every_kind) {
        const Mesh mesh =
            testing::box_mesh({{20, 15, 17}, {1, 0.7, 0.9}}, kind);  // more nodes than one portion
        const NodeElements around = elements_of_nodes(mesh);
        const Elasticity elasticity = build_elasticity(std::span(&steel, 1), silent);
        const SparseKM km = testing::assemble(mesh, steel, elasticity);
        std::vector<std::int32_t> map(mesh.dof_num(), 0);
        for (std::int32_t d = 0; d < mesh.dof_num(); d += 7) map[d] = -1;
        const ElementType& type = element_type(kind);
        const auto matrices = [&](std::int32_t e, double* ke, double* me) {
            ElementPoints points;
            evaluate_points(type, mesh, e, points);
            element_stiffness(type, points, moduli(elasticity, 0), ke);
            type.mass(points.x.data(), me);
            for (int k = 0; k < type.nodes * type.nodes; ++k) me[k] *= steel.density;
            return true;
        };
        for (const int threads : {1, 2}) {
            const MatrixDiagonals sums = matrix_diagonals(
                mesh, around, neighbours_of_nodes(mesh, around, silent), matrices, map, threads, silent);
            double mass = 0, stiffness = 0;
            for (std::int32_t r = 0; r < km.rows(); ++r) {
                EXPECT_EQ(sums.K[r], km.K_value[km.diag_pos[r]]);
                EXPECT_EQ(sums.M[r], km.M_value[km.diag_pos[r]]);
                for (std::int64_t k = km.row_start[r]; k < km.row_start[r] + km.row_count[r]; ++k) {
                    mass += km.M_value[k];
                    if (map[r] >= 0 && map[km.col_index[k]] >= 0) stiffness += km.K_value[k];
                }
            }
            EXPECT_EQ(sums.mass_sum, mass);
            EXPECT_EQ(sums.stiffness_sum, stiffness);
        }
    }
}

}  // namespace
}  // namespace kestralum
