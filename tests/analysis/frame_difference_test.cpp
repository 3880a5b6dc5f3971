// Frames of two runs, one less the other: known factors, other numbers of the nodes, meshes that differ.
#include "fields/frame_difference.h"

#include "analysis/element_values.h"
#include "fields/quantities.h"
#include "results/match_mesh.h"
#include "results/result_file.h"
#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

class FrameDifferences : public AnalysisTest {
protected:
    std::string bar(ElementKind kind) {
        return ModelText{.parts = part_of(kind, {{4, 2, 2}, {0.2, 1, 0.1}}),
                         .supports = "A plane y 0 0 0 0 0 0",
                         .rigid = "% load_info F force TIP 1e3 2e3 -1e3 %",
                         .others = "set_info TIP plane y 1 %\n"};
    }
    kestralum::Run run_of(Analyse analysis, const std::string& ordering) {
        settings.ordering_type = ordering;
        expect_done(analyse(analysis));
        return result;
    }
};

// Half as stiff, with other numbers, it moves twice as far under the same stresses.
TEST_F(FrameDifferences, OfTwoStiffnessesAreTheHalfOfTheSofter) {
    for (const ElementKind kind : every_kind) {
        ASSERT_TRUE(read(bar(kind)));
        const kestralum::Run hard = run_of(analyse_static, "NONE");
        const Model of_hard = model;
        model.materials[0].young *= 0.5;
        const kestralum::Run soft = run_of(analyse_static, "LALL");
        ASSERT_NE(hard.mesh.coordinates, soft.mesh.coordinates) << "the numbers are others";
        const MeshMatch match = match_meshes(soft.mesh, hard.mesh, Coordinates::exact);
        ASSERT_TRUE(match.same()) << match.why_not;
        for (std::size_t n = 0; n < match.node_of.size(); ++n)
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(soft.mesh.node(static_cast<std::int32_t>(n))[c],
                          hard.mesh.node(match.node_of[n])[c]);
        const Frame &a = *soft.results[0], &b = *hard.results[0];
        std::vector<double> half = a.mode_vec;
        for (double& u : half) u *= 0.5;
        expect_equal(value_difference(a.mode_vec, b.mode_vec, 3, match.node_of), half, 1e-9);
        // further quantities: twice the energy
        const auto material = node_materials(model, soft.mesh), other = node_materials(of_hard, hard.mesh);
        const FieldQuantityRow& row = *field_quantity_at(111);
        const std::vector<double> soft_energy = FieldValues(model, material, a).of(row);
        std::vector<double> energy = soft_energy;
        for (double& e : energy) e *= 0.5;
        expect_equal(value_difference(soft_energy, FieldValues(of_hard, other, b).of(row), 1, match.node_of),
                     energy, 1e-6);
        const std::vector<double> own = element_values(model, soft, a);
        // elements keep their order
        const std::vector<double> jump = value_difference(own, element_values(of_hard, hard, b), 1, {});
        ASSERT_EQ(jump.size(), own.size());
        EXPECT_NEAR(jump[0], 0, 1e-6 * std::abs(own[0]));
    }
}

TEST_F(FrameDifferences, WantOneMesh) {
    ASSERT_TRUE(read(bar(ElementKind::hexahedron)));
    const kestralum::Run run = run_of(analyse_static, "LALL");
    const auto why = [&](const Mesh& other) {
        const MeshMatch match = match_meshes(run.mesh, other, Coordinates::exact);
        EXPECT_EQ(match.node_of.empty(), !match.same());
        return match.why_not;
    };
    const Grid grid{{4, 2, 2}, {0.2, 1, 0.1}};
    EXPECT_EQ(why(box_mesh(grid, ElementKind::hexahedron)), "");
    EXPECT_EQ(why(box_mesh(grid, ElementKind::tetrahedron4)),
              "one has elements of 8 nodes, the other of 4 nodes");
    EXPECT_EQ(why(box_mesh({{4, 2, 3}, {0.2, 1, 0.1}}, ElementKind::hexahedron)),
              "one has 16 elements, the other 24");
    Mesh other = run.mesh;
    other.coordinates.insert(other.coordinates.end(), 3, 0.0);
    EXPECT_EQ(why(other), "one has 45 nodes, the other 46");
    other = run.mesh;
    other.coordinates[3 * 7 + 1] += 1e-10;
    EXPECT_EQ(why(other), "") << "within 1e-9 of the largest edge";
    other.coordinates[3 * 7 + 1] += 1e-8;
    EXPECT_TRUE(why(other).starts_with("node 8 is at (")) << why(other);
    other = run.mesh;
    std::swap(other.connectivity[8], other.connectivity[9]);
    EXPECT_TRUE(why(other).starts_with("element ")) << why(other);
    other = run.mesh;
    std::swap_ranges(other.connectivity.begin(), other.connectivity.begin() + 8,
                     other.connectivity.end() - 8);
    EXPECT_FALSE(why(other).empty()) << "elements in another order";
    // what a file has rounded is the same mesh if one says so
    options.log_folder = folder.file("log");
    const Grid odd{{3, 3, 3}, {1.0 / 3, 1.0 / 7, 1.0 / 9}};
    ASSERT_TRUE(read(ModelText{.parts = part_of(ElementKind::hexahedron, odd),
                               .supports = "A plane x 0 0 0 0 0 0",
                               .forces = "F area x 1e3 0.3 0.4 0 1 0 1"}));
    expect_done(analyse(analyse_static));
    const auto stored = read_result_file("log\\result_model.txt", options.log_folder, said);
    ASSERT_TRUE(stored) << said.errors;
    EXPECT_FALSE(match_meshes(result.mesh, stored->run.mesh, Coordinates::exact).same());
    const MeshMatch match = match_meshes(result.mesh, stored->run.mesh, Coordinates::as_written);
    ASSERT_TRUE(match.same()) << match.why_not;
    const std::vector<double> less =
        value_difference(frame().mode_vec, stored->run.results[0]->mode_vec, 3, match.node_of);
    ASSERT_EQ(less.size(), frame().mode_vec.size());
    double left = 0, size = 0;
    for (std::size_t d = 0; d < less.size(); ++d) {
        left = std::max(left, std::abs(less[d]));
        size = std::max(size, std::abs(frame().mode_vec[d]));
    }
    EXPECT_LT(left, 1e-6 * size) << "the digits that the file leaves out";
}

TEST(ValueDifference, FollowsTheNodesAndWantsAsManyValues) {
    const std::vector<double> a{1, 2, 3, 4, 5, 6}, b{6, 5, 4, 3, 2, 1};
    const std::vector<std::int32_t> swapped{1, 0};
    EXPECT_EQ(value_difference(a, b, 3, swapped), (std::vector<double>{-2, 0, 2, -2, 0, 2}));
    EXPECT_TRUE(value_difference(a, {}, 3, swapped).empty());
    EXPECT_TRUE(value_difference(a, b, 1, swapped).empty());
}

}  // namespace
}  // namespace kestralum
