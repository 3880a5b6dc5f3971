// Named sets: what they hold against what is known of the body, that records select with them what they
// select with coordinates, and what is refused.
#include "model/mesh_sets.h"
#include "analysis/static/static_analysis.h"
#include "support/analysis_run.h"

namespace kestralum {
namespace {

using testing::every_kind;
using testing::Grid;
using testing::ModelText;
using testing::rect;

class MeshSets : public testing::AnalysisTest {
protected:
    const MeshSet& set(const std::string& name) {
        const MeshSet* found = find_set(model.mesh, name);
        EXPECT_NE(found, nullptr) << name;
        static const MeshSet none;
        return found ? *found : none;
    }
    double area(const std::string& name) { return measure_set(model.mesh, set(name)).area; }
    // The errors of a model, none where it is taken.
    std::string errors(const std::string& sets, const std::string& support = "C set S") {
        Model refused = placeholder_model();
        const ModelText text{
            .parts = rect("b", "1 2 3", "2 2 3"), .supports = support, .others = "set_info " + sets + " %\n"};
        refused.model_file_name = folder.write("refused.txt", text);
        testing::Collected console;
        read_input_file(refused, {}, console);
        return console.errors;
    }
};

TEST_F(MeshSets, OfABlockHaveTheAreasOfItsFaces) {
    for (const ElementKind kind : every_kind) {
        ASSERT_TRUE(read(ModelText{
            .parts = part_of(kind, Grid{{2, 4, 6}, {1, 2, 3}}),
            .others = "parameter h 3 % set_info\n"
                      "TOP plane z h   LOW box 0 1 0 2 0 1   NEAR where 1-x-y tol=0\n"
                      "UP normal 0 0 2 1   SIDES normal 1 1 0 46   SIDE patch 0.5 2.2 1 10\n"
                      "ALL patch 0.5 2 1 90   BODY part b\n"
                      "BOTH union TOP,LOW  EDGE intersection TOP,SIDE  REST difference ALL,TOP,LOW\n"
                      "WIDE plane z 0.4 tol=0.1 %\n"}));
        EXPECT_NEAR(area("TOP"), 2, 1e-12);
        EXPECT_EQ(set("TOP").nodes, set("UP").nodes);
        EXPECT_EQ(set("TOP").faces, set("UP").faces);
        EXPECT_NEAR(area("LOW"), 2 + 2 * (1 + 2), 1e-12);
        EXPECT_NEAR(area("SIDES"), 3 + 6, 1e-12);
        EXPECT_NEAR(area("SIDE"), 3, 1e-12);
        EXPECT_NEAR(area("ALL"), 2 * (2 + 3 + 6), 1e-12);
        EXPECT_NEAR(area("REST"), 22 - 2 - 8, 1e-12);
        EXPECT_NEAR(area("BOTH"), 10, 1e-12);
        EXPECT_EQ(area("EDGE"), 0);
        const bool middles = kind == ElementKind::tetrahedron10;
        EXPECT_EQ(set("EDGE").nodes.size(), middles ? 5u : 3u);
        EXPECT_EQ(measure_set(model.mesh, set("EDGE")).box, (std::array<double, 6>{0, 1, 2, 2, 3, 3}));
        EXPECT_EQ(set("WIDE").nodes.size(), set("TOP").nodes.size());
        for (const std::int32_t n : set("NEAR").nodes)
            EXPECT_LE(model.mesh.node(n)[0] + model.mesh.node(n)[1], 1);
        EXPECT_EQ(set("NEAR").nodes.size(), kind == ElementKind::hexahedron ? 42u : set("NEAR").nodes.size());
        EXPECT_EQ(set("BODY").nodes.size(), std::size_t(model.mesh.node_num()));
        EXPECT_NEAR(area("BODY"), 22, 1e-12);
    }
}

// The polygon that the divisions make of the circle.
TEST_F(MeshSets, OfCurvedFacesAreTheirPolygons) {
    constexpr double inner = 0.08, outer = 0.1, length = 0.3;
    constexpr int around = 24;
    ASSERT_TRUE(
        read("material_info M 7800 2e11 0.3 %\nset_info\n"
             "BORE cylinder z 0 0 0 0.08  SHELL cylinder z 0 0 0.1 0.1  SMOOTH patch 0.1 0 0.1 20\n"
             "ROUND sphere 0 0 0 0.1  LINE intersection ROUND,SHELL %\n"
             "part_info t red M HOLLOWCYLI 0.1 0.02 0.3 0 0 0 24 2 6 0 0 0 0 0 0 0 0 0 %\nEND\n"));
    const auto polygon = [&](double radius) {
        return around * 2 * radius * std::sin(M_PI / around) * length;
    };
    EXPECT_NEAR(area("BORE"), polygon(inner), 1e-12);
    EXPECT_NEAR(area("SHELL"), polygon(outer), 1e-12);
    EXPECT_EQ(set("SMOOTH").faces, set("SHELL").faces);
    EXPECT_EQ(set("SMOOTH").nodes, set("SHELL").nodes);
    EXPECT_EQ(set("LINE").nodes.size(), std::size_t(around));
}

TEST_F(MeshSets, SelectWhatCoordinatesSelect) {
    const std::string block = rect("b", "0.2 0.3 1", "4 5 12"),
                      sets = "set_info FOOT plane z 0  TIP box 0 0.2 0 0.3 1 1 %\n";
    const ModelText by_place{.parts = block,
                             .supports = "C plane z 0 0 0 0 0 0",
                             .forces = "F area y 1e6 0 0.2 0 0.3 1 1",
                             .rigid = "cap area 0.1 0.15 1 0 0.2 0 0.3 1 1 % rigid_force t cap rz 1e3 %"};
    ModelText by_set = by_place;
    by_set.others = sets;
    by_set.supports = "C set FOOT";
    by_set.forces = "F set y 1e6 TIP";
    by_set.rigid = "cap set 0.1 0.15 1 TIP % rigid_force t cap rz 1e3 %";
    for (const bool rigid : {false, true}) {
        std::vector<double> expected;
        for (ModelText text : {by_place, by_set}) {
            if (!rigid) text.rigid = {};
            ASSERT_TRUE(read(text));
            EXPECT_EQ(model.boundary_conditions[0].box[5], 0);
            testing::expect_done(analyse(analyse_static));
            EXPECT_GT(std::ranges::max(frame().mode_vec), 0);
            if (expected.empty()) expected = frame().mode_vec;
            EXPECT_TRUE(frame().mode_vec == expected);
        }
    }
}

// A tetrahedron between the axes, twice, the second one placed beside the first; they share no node.
TEST_F(MeshSets, OfImportedPartsAreTheirGroups) {
    folder.write("t.msh",
                 "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames\n2\n2 1 \"floor 1\"\n3 2 \"body\"\n"
                 "$EndPhysicalNames\n$Nodes\n5\n9 7 7 7\n10 0 0 0\n20 1 0 0\n30 0 2 0\n40 0 0 3\n$EndNodes\n"
                 "$Elements\n2\n1 2 2 1 1 10 20 30\n2 4 2 2 1 10 20 30 40\n$EndElements\n");
    const std::string zeros = " 0 0 0 0 0 0 0 0 0 0 0 ";
    ASSERT_TRUE(read(ModelText{
        .parts = "P red M MSH t.msh" + zeros + "0 0 0 0 0 0 Q red M MSH t.msh" + zeros + "5 0 0 0 0 0\n",
        .supports = "C set P.floor_1 D set FLOOR",
        .others = "set_info FLOOR group Q.floor_1 ALL union P.body,Q.body %\n"}));
    EXPECT_EQ(model.mesh.node_num(), 8);
    for (const char* name : {"P.floor_1", "Q.floor_1", "FLOOR"}) EXPECT_NEAR(area(name), 1, 1e-15) << name;
    EXPECT_EQ(model.boundary_conditions.at(0).box, (std::array<double, 6>{0, 1, 0, 2, 0, 0}));
    EXPECT_EQ(model.boundary_conditions.at(1).box, (std::array<double, 6>{5, 6, 0, 2, 0, 0}));
    EXPECT_EQ(set("ALL").faces.size(), 8u);
    EXPECT_NEAR(area("ALL"), 2 * (1 + 1.5 + 3 + std::sqrt(1 + 1.5 * 1.5 + 9)), 1e-14);
}

TEST_F(MeshSets, AreRefusedWhereTheyAreWrong) {
    using testing::contains;
    EXPECT_EQ(errors("S plane z 0"), "");
    const std::pair<const char*, const char*> wrong[] = {
        {"S plain z 0", "'plain': expected a kind of set behind its name (box, plane,"},
        {"S", "a kind of set"},
        {"S plane z", "2 tokens behind the set's kind"},
        {"S plane w 0", "'w': expected an axis"},
        {"S sphere 0 0 0 0", "a radius above 0 m"},
        {"S normal 0 0 0 5", "a direction that is not zero"},
        {"S normal 0 0 1 181", "an angle of 0 to 180 degrees"},
        {"S where x+q", "an expression over x, y, z"},
        {"S plane z 0 tol=-1", "tol=LENGTH"},
        {"S part c", "no part has the name c"},
        {"S group b.TOP", "no imported mesh has the group b.TOP"},
        {"S union A,B", "no set before it has the name A"},
        {"A plane z 0 S union A,,A", "a comma between them"},
        {"S plane z 9", "support C: the set S is empty"},
        {"T plane z 0", "support C: no set or group of an imported mesh has the name S"}};
    for (const auto& [sets, expected] : wrong)
        EXPECT_TRUE(contains(errors(sets), expected)) << sets << ": " << errors(sets);
    EXPECT_TRUE(contains(errors("S plane z 0", "C set"), "boundary_condition"));
}

}  // namespace
}  // namespace kestralum
