// Supports and loads on a small grid whose selections can be counted by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "conditions/constraints.h"
#include "conditions/loads.h"
#include "model/console.h"
#include "support/assembled.h"
#include "support/box_mesh.h"

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
    console::Capture captured;
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
        std::int32_t fn_free = mesh.dof_num;
        const DofNumbering numbering =
            apply_boundary_conditions(std::span(&c.record, 1), mesh, around, fn_free);
        EXPECT_EQ(numbering.fix_node_num(), c.nodes) << &c - cases;
        EXPECT_EQ(fn_free, mesh.dof_num - 3 * c.nodes);
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
    const console::Capture quiet;
    Mesh mesh = testing::hexa_box({{1, 1, 1}, {1, 1, 1}});
    const BoundaryCondition records[] = {support(Selection::plane, 2, {0, 0, 0, 0, 0, 0}),
                                         support(Selection::plane, 0, {0, 0, 0, 0, 0, 0})};
    std::int32_t fn_free = 24;
    const DofNumbering numbering = apply_boundary_conditions(records, mesh, elements_of_nodes(mesh), fn_free);
    EXPECT_EQ(numbering.fix_node_num(), 8);
    EXPECT_EQ(fn_free, 0);
    EXPECT_EQ(numbering.free_dofs.size(), 6u);  // two nodes on neither plane
    EXPECT_EQ(numbering.repeated_nodes(), 2);
}

TEST(Supports, NodesOnNoElementAreEliminatedWithoutBeingCounted) {
    const console::Capture quiet;
    Mesh mesh = testing::hexa_box({{1, 1, 1}, {1, 1, 1}});
    mesh.coordinates.insert(mesh.coordinates.end(), {5, 5, 5});
    mesh.dof_num += 3;
    std::int32_t fn_free = 27;
    const DofNumbering numbering = apply_boundary_conditions({}, mesh, elements_of_nodes(mesh), fn_free);
    EXPECT_EQ(numbering.hanging_nodes, 1);
    EXPECT_EQ(numbering.fix_node_num(), 0);
    EXPECT_EQ(fn_free, 27);
    EXPECT_EQ(numbering.free_dofs.size(), 24u);
    EXPECT_EQ(numbering.dof_map[26], -1);
    // a support on such a node fixes it, but not twice, and holds nothing
    const BoundaryCondition record = support(Selection::plane, 2, {0, 0, 0, 0, 0, 5});
    fn_free = 27;
    const DofNumbering held =
        apply_boundary_conditions(std::span(&record, 1), mesh, elements_of_nodes(mesh), fn_free);
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
    DofNumbering numbering;
    SparseKM km;
    LoadVector load;
    double at(double x, double y, double z, int axis) const {
        for (std::size_t n = 0; n < mesh.coordinates.size() / 3; ++n)
            if (mesh.coordinates[3 * n] == x && mesh.coordinates[3 * n + 1] == y &&
                mesh.coordinates[3 * n + 2] == z) {
                const std::int32_t k = numbering.dof_map[3 * n + static_cast<std::size_t>(axis)];
                return k < 0 ? 0 : load.F[static_cast<std::size_t>(k)];
            }
        ADD_FAILURE() << "no such node";
        return 0;
    }
};

Loaded load(ElementKind kind, const std::vector<AppliedForce>& forces) {
    Loaded out{testing::box_mesh({{2, 2, 2}, {1, 1, 1}}, kind), {}, {}, {}};
    const Material steel{.id = 0, .name = "S", .density = 1, .young = 1e9, .poisson = 0.3};
    const BoundaryCondition clamp = support(Selection::plane, 2, {0, 0, 0, 0, 0, 0});
    std::int32_t fn_free = out.mesh.dof_num;
    out.numbering =
        apply_boundary_conditions(std::span(&clamp, 1), out.mesh, elements_of_nodes(out.mesh), fn_free);
    out.km = testing::assemble(out.mesh, steel, build_elasticity(std::span(&steel, 1)));
    eliminate_fixed(out.numbering.dof_map, out.km);
    out.load = build_loads(forces, out.mesh, out.numbering, diagonal_of(out.km));
    return out;
}

TEST(Loads, PointForcesAssignAndAFixedOneIsTold) {
    console::Capture captured;
    const Loaded loaded = load(ElementKind::hexahedron,
                               {point_force({1, 1, 1}, 0, 5), point_force({1, 1 + 0.9e-7, 1}, 0, 7),
                                point_force({1, 1, 1 + 1.1e-7}, 0, 11), point_force({0, 0, 0}, 2, 13)});
    EXPECT_EQ(loaded.at(1, 1, 1, 0), 7) << "the later of two on one degree of freedom stands";
    EXPECT_EQ(loaded.load.reached, (std::vector<std::int32_t>{1, 1, 0, 1}));
    EXPECT_EQ(loaded.load.on_fixed, (std::vector<std::int32_t>{0, 0, 0, 1}));
    double sum = 0;
    for (double f : loaded.load.F) sum += f;
    EXPECT_EQ(sum, 7);
    EXPECT_NE(captured.lines.find(
                  "Force Number 4\n### ERROR ###\nSome force vectors are applied at fixed degree points.\n"),
              std::string::npos);
}

TEST(Loads, AreaForcesFollowTheStiffnessOnHexahedraAndAreEvenOnTetrahedra) {
    console::Capture captured;
    const AppliedForce top = area_force({0, 1, 0, 1, 1, 1}, 2, 900);
    const Loaded hexa = load(ElementKind::hexahedron, {top});
    // by symmetry: four corners, four edge middles, one centre, in the ratio of the diagonal of K:
    // 1 : 2 : 4 for a uniform grid
    EXPECT_NEAR(hexa.at(0, 0, 1, 2), 900.0 / 16, 1e-9);
    EXPECT_NEAR(hexa.at(0.5, 0, 1, 2), 900.0 / 8, 1e-9);
    EXPECT_NEAR(hexa.at(0.5, 0.5, 1, 2), 900.0 / 4, 1e-9);
    EXPECT_NE(captured.lines.find("  points in area:9\n   area_force=9.000e+02,force_value=9.000e+02\n"),
              std::string::npos);

    const Loaded tetra = load(ElementKind::tetrahedron4, {area_force({1, 1, 0, 1, 0, 1}, 0, 60)});
    EXPECT_EQ(tetra.load.reached[0], 9);
    EXPECT_EQ(tetra.load.on_fixed[0], 3) << "nodes of the clamp take no share";
    EXPECT_EQ(tetra.at(1, 0, 0, 0), 0);
    EXPECT_EQ(tetra.at(1, 0.5, 0.5, 0), 10);
    const Loaded nothing = load(ElementKind::tetrahedron10, {area_force({3, 4, 3, 4, 3, 4}, 0, 60)});
    EXPECT_EQ(nothing.load.reached[0], 0);
    for (double f : nothing.load.F) EXPECT_EQ(f, 0);
}

}  // namespace
}  // namespace kestralum
