// Exported files come back through the program's own readers as the same model, with the same displacements.
#include "results/export_file.h"

#include <map>

#include "analysis/static/static_analysis.h"
#include "support/analysis_run.h"
#include "support/mesh_geometry.h"
#include "system/nodal_conditions.h"

namespace kestralum {
namespace {

using testing::contains;
using testing::every_kind;
using testing::Grid;
using testing::ModelText;
using testing::read_file;

#ifndef KESTRALUM_GMSH
#define KESTRALUM_GMSH ""
#endif

constexpr std::array<double, 3> size{1.0 / 3, 0.07, 1.1};  // numbers of all digits
const std::string set_text =
    "set_info top plane z 1.1  rim.side normal 1 0 0 5  both union top,rim.side\n"
    "edge box 0 0 0 0 0 2  most difference rim.side,top  wide union both,edge %\n";

class Export : public testing::AnalysisTest {
protected:
    ModelText text_of(const std::string& parts, const std::string& others) {
        return {.parts = parts,
                .supports = "C plane z 0 0 0 0 0 0",
                .forces = "PULL area x 1000 0 1 0 1 1.1 1.1  TIP node y 70 0 0 1.1",
                .others = others};
    }
    NodalConditions conditions() {
        NodalConditions found;
        Remarks remarks;
        EXPECT_TRUE(find_nodal_conditions(model, settings, said, found, remarks));
        return found;
    }
    Remarks write(const std::string& name, ExportFormat format) {
        Remarks remarks;
        const NodalConditions found = conditions();
        EXPECT_TRUE(export_file(format, {model, found, folder.file(name), 2, remarks, said}));
        return remarks;
    }
    // Displacements in the model's numbering.
    std::vector<double> displacements() {
        testing::expect_done(analyse(analyse_static));
        std::vector<double> u(model.mesh.dof_num());
        for (std::size_t d = 0; d < u.size(); ++d)
            u[d] = frame().mode_vec.at(3 * result.node_of[d / 3] + d % 3);
        return u;
    }
    // The first group "p.NAME" of the mesh read back holds what the set holds.
    void expect_set(const MeshSet& set, const std::string& name) {
        const MeshSet* read_back = find_set(model.mesh, "p." + name);
        ASSERT_NE(read_back, nullptr) << name;
        EXPECT_EQ(read_back->faces, set.faces) << name;
        EXPECT_FALSE(set.nodes.empty()) << name;
        const MeshSet* twin =
            find_set(model.mesh, "p." + name + "_2");  // with its nodes beside those of faces
        EXPECT_TRUE(read_back->nodes == set.nodes || (twin && twin->nodes == set.nodes)) << name;
    }
};

TEST_F(Export, DecksAndMeshesComeBackAsTheSameModel) {
    for (const ElementKind kind : every_kind) {
        ASSERT_TRUE(read(text_of(part_of(kind, Grid{{2, 2, 5}, size}), set_text)));
        const Mesh mesh = model.mesh;
        const std::vector<double> u = displacements();
        const NodalConditions found = conditions();
        for (std::size_t d = 0; d < u.size(); ++d)
            EXPECT_EQ(found.load[d], result.load[3 * result.node_of[d / 3] + d % 3]) << "to the last bit";
        EXPECT_EQ(write("p.inp", ExportFormat::inp).notices.size(), 1u) << "the set with a dot";
        EXPECT_EQ(write("p.msh", ExportFormat::msh).notices.size(), 0u);
        for (const auto& [word, file] : {std::pair{"INP", "p.inp"}, std::pair{"MSH", "p.msh"}}) {
            SCOPED_TRACE(file);
            const std::string part = std::string("p red M ") + word + " " + file;
            ASSERT_TRUE(read(text_of(part + " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n", "")));
            EXPECT_EQ(model.mesh.connectivity, mesh.connectivity);
            testing::expect_equal(model.mesh.coordinates, mesh.coordinates, 1e-15);
            testing::expect_equal(displacements(), u, 1e-12);
            for (const MeshSet& set : mesh.sets)
                expect_set(set, set.name == "rim.side" && std::string(word) == "INP" ? "rim_side" : set.name);
            const MeshSet* body = find_set(model.mesh, "p.b");
            EXPECT_TRUE(body && std::ssize(body->elements) == mesh.element_num());
        }
    }
}

TEST_F(Export, GmshReadsTheMeshWithoutAWord) {
    if (std::string(KESTRALUM_GMSH).empty()) GTEST_SKIP() << "SKIPPED: the program gmsh is not installed";
    for (const ElementKind kind : every_kind) {
        ASSERT_TRUE(read(text_of(part_of(kind, Grid{{2, 2, 5}, size}), set_text)));
        write("p.msh", ExportFormat::msh);
        const std::string out = folder.file("out.txt");
        ASSERT_EQ(std::system(("cd '" + folder.path().string() +
                               "' && " KESTRALUM_GMSH " p.msh -check - > out.txt 2>&1 && " KESTRALUM_GMSH
                               " p.msh - >> out.txt 2>&1")
                                  .c_str()),
                  0);
        const std::string said_there = read_file(out);
        EXPECT_FALSE(contains(said_there, "Warning") || contains(said_there, "Error")) << said_there;
        EXPECT_TRUE(contains(said_there, formatted(": %d nodes", model.mesh.node_num()))) << said_there;
        std::size_t elements = model.mesh.element_num();
        for (const char* name : {"top", "rim.side"}) elements += find_set(model.mesh, name)->faces.size();
        elements += find_set(model.mesh, "wide")->nodes.size();  // which has the other sets of nodes in it
        EXPECT_TRUE(contains(said_there, formatted(": %zu elements", elements))) << said_there;
    }
}

TEST_F(Export, TheSurfaceIsClosedAndHoldsTheVolume) {
    for (const ElementKind kind : every_kind) {
        ASSERT_TRUE(read(text_of(part_of(kind, Grid{{2, 2, 5}, size}), "")));
        const Mesh solid = model.mesh;
        write("p.stl", ExportFormat::stl);
        ASSERT_TRUE(read(ModelText{.parts = "p red M STL p.stl 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"}));
        const Mesh& mesh = model.mesh;
        std::map<std::pair<Vec3, Vec3>, int> edges;
        double volume = 0;
        for (std::size_t f = 0; f < mesh.surface_facets.size(); f += 3) {
            std::array<Vec3, 3> x;
            for (std::size_t k = 0; k < 3; ++k) x[k] = place_of(mesh, mesh.surface_facets[f + k] - 1);
            volume += dot(x[0], cross(x[1], x[2])) / 6;
            for (std::size_t k = 0; k < 3; ++k) {
                ++edges[{x[k], x[(k + 1) % 3]}];
                --edges[{x[(k + 1) % 3], x[k]}];
            }
        }
        for (const auto& [edge, sum] : edges) EXPECT_EQ(sum, 0) << "an edge is run through once each way";
        EXPECT_NEAR(volume, size[0] * size[1] * size[2], 1e-6 * volume);
        EXPECT_EQ(mesh.surface_part_id.size(),
                  (kind == ElementKind::tetrahedron10 ? 4u : 1u) * 2 * 2 * (2 * 2 + 2 * 5 + 2 * 5));
    }
}

TEST_F(Export, AStopLeavesTheEarlierFile) {
    ASSERT_TRUE(read(text_of(part_of(ElementKind::hexahedron, Grid{{12, 12, 40}, size}), set_text)));
    for (const char* name : {"p.inp", "p.msh", "p.vtu", "p.stl"}) {
        const std::string path = folder.write(name, "earlier");
        const auto stops = [&](const Progress& progress, Remarks& remarks) {
            NodalConditions found;
            return find_nodal_conditions(model, settings, progress, found, remarks) &&
                   export_file(*export_format(name), {model, found, path, 1, remarks, progress});
        };
        for (const std::int64_t look : {1, 2, 5, 12}) {
            const testing::StopsAtLook stopping(look);
            Remarks remarks;
            EXPECT_FALSE(stops(stopping, remarks)) << name << look;
            ASSERT_EQ(remarks.errors.size(), 1u);
            EXPECT_TRUE(contains(remarks.errors[0], "stopped on request")) << remarks.errors[0];
            EXPECT_EQ(read_file(path), "earlier");
            EXPECT_FALSE(std::filesystem::exists(path + ".part"));
        }
    }
}

TEST_F(Export, RigidElementsAreToldAtAPointThatSupportsLeave) {
    // FOOT is held on a skew line of its members; HEAD is free, its force acts at its reference point
    ASSERT_TRUE(read(ModelText{.parts = testing::rect("b", "1 1 3", "2 2 3"),
                               .supports = "A volume x 0 0 0 0 0 0  B volume x 1 1 1 1 0 0",
                               .forces = "P area y 7 0 1 0 1 -1 0  Q area x 9 0 1 0 1 2 3",
                               .rigid = "FOOT area 5 0 0  0 1 0 1 0 0  HEAD area 0.5 0.5 4  0 1 0 1 2 3 %\n"
                                        "rigid_force F FOOT y 10  G HEAD x 20 %\n"
                                        "rigid_combine J FOOT HEAD 1 2 0 0 0 3 %\n"}));
    const NodalConditions found = conditions();
    ASSERT_EQ(found.rigid.size(), 2u);
    const RigidMotion &foot = found.rigid[0], &head = found.rigid[1];
    EXPECT_TRUE(foot.held && !head.held && head.no_turn.empty());
    EXPECT_EQ(foot.no_turn.size(), 2u);
    for (const Vec3& direction : foot.no_turn) EXPECT_NEAR(dot(direction, {1, 1, 0}), 0, 1e-14);
    EXPECT_EQ(head.point, (Vec3{0.5, 0.5, 4}));
    testing::expect_equal(head.load, std::array<double, 6>{20, 0, 0, 0, 0, 0}, 1e-12);
    // the moment of the force at (5, 0, 0) about the held member
    const Vec3 moment = cross(minus({5, 0, 0}, foot.point), {0, 10, 0});
    testing::expect_equal(foot.load, std::array<double, 6>{0, 10, 0, moment[0], moment[1], moment[2]}, 1e-12);
    EXPECT_EQ(found.fixed.size(), 2u);
    analyse(analyse_static);  // the bar turns freely about the line, under loads that are known
    ASSERT_EQ(result.load.size(), found.load.size());
    for (std::size_t d = 0; d < found.load.size(); ++d)
        EXPECT_EQ(found.load[d], result.load[3 * result.node_of[d / 3] + d % 3])
            << "also of a rigid body's elements";

    write("p.inp", ExportFormat::inp);
    const std::string deck = read_file(folder.file("p.inp"));
    const int last = model.mesh.node_num();
    EXPECT_TRUE(
        contains(deck, formatted("*RIGID BODY, NSET=FOOT, REF NODE=%d, ROT NODE=%d\n", last + 1, last + 2)));
    EXPECT_TRUE(contains(deck, formatted("*EQUATION\n2\n%d,1,1.,%d,2,-1.\n", last + 2, last + 2)))
        << deck.substr(deck.find("*RIGID BODY"));
    EXPECT_TRUE(contains(deck, formatted("*BOUNDARY\n%d,1,3\n%d,3,3\n*STEP", last + 1, last + 2)))
        << "members themselves are not held";
    EXPECT_TRUE(contains(deck, formatted("\n%d,2,10.\n%d,3,", last + 1, last + 2)));
    EXPECT_TRUE(contains(deck, "*SPRING, ELSET=J_RZ\n3,3\n3.\n") && !contains(deck, "J_RX"));
}

// Rollers on a face askew that one case moves, springs on a curved face, a block tied to the end, heat: what
// the conditions say of each case is what its frame does, and the springs pull with what the run says they
// carry.
TEST_F(Export, ConditionsSayWhatEachCaseDoes) {
    const std::string normal = "0.17101007166283436 -0.46984631039295416 0.8660254037844387 1";
    ASSERT_TRUE(
        read("material_info M 7800 2e11 0.3 alpha=1e-5 %\n"
             "part_info T red M HALF_HOLLOWCYLI 0.05 0.015 0.1 0 0 0  8 2 4 0 0 0  0 0 0  20 30 10\n"
             "  B red M RECT 0.12 0.08 0.02 0 0 0  5 4 2 0 0 0  -0.03336 -0.08378 0.0766  20 30 0 %\n"
             "set_info t part T  b part B  up normal " +
             normal +
             "  down normal -0.17101007166283436 "
             "0.46984631039295416 -0.8660254037844387 1\n"
             "  FOOT intersection t,down  TOP intersection t,up  SOLE intersection b,down\n"
             "  side normal 0 0 1 180  HULL difference t,FOOT,TOP %\n"
             "tie_info GLUE TOP SOLE tolerance=1e-3 %\n"
             "boundary_condition ROLL set FOOT fix=normal  PUSH set FOOT ux=1e-5*(1+x) case=b\n"
             "  BED set HULL spring=1e9 spring_normal=2e9 %\n"
             "load_info P pressure HULL 1e6*(1+5*x)  Q remote TOP 0 0 1 100 0 0 0 5 0 case=b\n"
             "  H temperature T 300+50*z reference=293 case=b %\n"
             "load_combination SUM base-2*b % END\n"));
    const NodalConditions found = conditions();
    testing::expect_done(analyse(analyse_static));
    ASSERT_EQ(found.cases.size(), 3u);
    EXPECT_GT(found.held.size(), 30u);
    EXPECT_GT(found.ties.size(), 10u);
    EXPECT_GT(found.ground.size(), 500u);
    for (std::size_t k = 0; k < 3; ++k) {
        const ConditionCase& one = found.cases[k];
        EXPECT_EQ(one.name, frame(k).name);
        const auto u = [&](std::int32_t node) { return triple(frame(k).mode_vec, result.node_of[node]); };
        for (std::size_t h = 0; h < found.held.size(); ++h)
            EXPECT_NEAR(dot(found.held[h].direction, u(found.held[h].node)), one.held[h], 1e-17);
        EXPECT_EQ(std::ranges::any_of(one.held, [](double v) { return v != 0; }), k > 0);
        for (const TiedMotion& tied : found.ties) {
            Vec3 rest = u(tied.node);
            for (const auto& [node, weight] : tied.weights) rest = minus(rest, times(weight, u(node)));
            EXPECT_LT(norm(rest), 1e-17);
        }
        Vec3 pull{}, applied{};
        for (const SpringTerm& spring : found.ground) {
            const auto at = [&](std::int32_t dof) { return u(dof / 3)[dof % 3]; };
            const double force =
                spring.stiffness * (at(spring.dof) - (spring.other < 0 ? 0 : at(spring.other)));
            pull[spring.dof % 3] -= force;
            if (spring.other >= 0) pull[spring.other % 3] += force;
        }
        const CaseReport& report = result.report.cases[k];
        testing::expect_equal(pull, report.supports.back().force, 1e-9);
        for (std::size_t d = 0; d < one.load.size(); ++d) applied[d % 3] += one.load[d];
        testing::expect_equal(applied, report.applied, 1e-12);
        const double share = std::array{0.0, 1.0, -2.0}[k];  // of the heat in the case
        for (const std::int32_t n : find_set(model.mesh, "t")->nodes)
            EXPECT_NEAR(one.warmth[n], share * (7 + 50 * model.mesh.node(n)[2]), 1e-9);
    }
    model.hexahedra = HexahedronForm::enhanced;
    std::string notes;
    for (const std::string& note : write("p.inp", ExportFormat::inp).notices) notes += note + "\n";
    for (const char* part : {"C3D8I", "vary within hexahedra", "springs of supports stand on nodes"})
        EXPECT_TRUE(contains(notes, part)) << notes;
    const std::string deck = read_file(folder.file("p.inp"));
    for (const char* part :
         {"TYPE=C3D8I", "*EXPANSION, ZERO=0.\n1.e-5\n", "TYPE=SPRING2", "** load case SUM\n*STEP\n"})
        EXPECT_TRUE(contains(deck, part)) << part;
    EXPECT_EQ(deck.find("\n*CLOAD\n"), deck.rfind("\n*CLOAD\n")) << "later ones begin anew";
    for (std::size_t line = 0; line < deck.size(); line = deck.find('\n', line) + 1)
        ASSERT_LE(std::count(deck.begin() + line, deck.begin() + deck.find('\n', line), ','), 15);
}

// A body that rollers hold in part: none of its motions has a part in what the deck holds.
TEST_F(Export, RigidElementsOnRollersKeepTheMotionsThatAreFree) {
    ASSERT_TRUE(read(ModelText{.parts = testing::rect("b", "1 1 3", "2 2 3"),
                               .supports = "A plane z 0 0 0 0 0 0  R volume x 0 0 0 1 3 3 fix=x",
                               .rigid = "HEAD area 0.5 0.5 4  0 1 0 1 2 3 %\n"
                                        "rigid_force F HEAD x 20  G HEAD ry 5 case=b %\n"}));
    const NodalConditions found = conditions();
    const RigidMotion& head = found.rigid.at(0);
    EXPECT_TRUE(!head.held && head.no_turn.empty());
    ASSERT_EQ(head.no_motion.size(), 2u) << "along x and about z where the edge lies";
    testing::expect_done(analyse(analyse_static));
    // three members tell the motion of the point and the rotation
    for (std::size_t k = 0; k < 2; ++k) {
        const auto u = [&](double x, double y, double z) {
            return triple(frame(k).mode_vec, node_at(x, y, z));
        };
        const Vec3 origin = u(0, 0, 3), along_x = minus(u(1, 0, 3), origin),
                   along_y = minus(u(0, 1, 3), origin);
        const Vec3 turn{along_y[2], -along_x[2], along_x[1]};
        const Vec3 point = plus(origin, cross(turn, minus(head.point, {0, 0, 3})));
        EXPECT_GT(norm(turn), 0);
        for (const auto& held : head.no_motion)
            EXPECT_NEAR(dot({held[0], held[1], held[2]}, point) + dot({held[3], held[4], held[5]}, turn), 0,
                        1e-12 * norm(turn));
    }
}

TEST_F(Export, StepsAndLawsFollowTheModel) {
    const auto deck = [&](const std::string& more, bool plastic) {
        ModelText text{
            .material = "7800 2e11 0.3", .parts = testing::rect("b", "1 1 1", "1 1 1"), .others = more};
        EXPECT_TRUE(read(text));
        model.control.plastic = plastic;
        model.materials[0].yield_stress = 3e8;
        model.materials[0].hardening = 1e9;
        write("p.inp", ExportFormat::inp);
        return read_file(folder.file("p.inp"));
    };
    const std::string free = deck("mode_num 7 %\n", false), plastic = deck("", true);
    EXPECT_TRUE(contains(free, "*STEP\n*FREQUENCY\n7\n") && !contains(free, "*STATIC")) << "without loads";
    EXPECT_TRUE(contains(plastic, "*PLASTIC\n3.e8,0.\n1.3e9,1.\n") && !contains(free, "*PLASTIC"));
    EXPECT_TRUE(contains(free,
                         "*MATERIAL, NAME=M\n*ELASTIC\n2.e11,.3\n*DENSITY\n7800.\n*SOLID SECTION, ELSET=b, "
                         "MATERIAL=M\n"));
}

}  // namespace
}  // namespace kestralum
