#include "mesh/gmsh_import.h"

#include <cstring>
#include <span>

#include "mesh/tetra_order.h"
#include "model/format.h"
#include "tool_runs.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

Reading read(const std::string& text, double unit = 1) {
    return kestralum::testing::read(read_msh_text, text, unit);
}

// "name: elements faces nodes" of every group, in order.
std::string groups_of(const Reading& r) {
    std::string text;
    for (const PartGroup& g : r.mesh.groups)
        text += g.name + ": " + std::to_string(g.elements.size()) + " " + std::to_string(g.faces.size()) +
                " " + std::to_string(g.nodes.size()) + "\n";
    return text;
}

// ---- files of Gmsh's own; what they enclose is tested with those of other formats

const auto msh_files = std::span(gmsh_files).first(4);

TEST(Gmsh, GroupsAreTheSameInEveryFormat) {
    NEEDS_GMSH;
    const GmshRun gmsh(
        "SetFactory(\"OpenCASCADE\"); Box(1) = {0, 0, 0, 4, 3, 2}; Cylinder(2) = {2, 1.5, -1, 0, 0, 4, "
        "0.5};\n"
        "BooleanDifference(3) = { Volume{1}; Delete; }{ Volume{2}; Delete; };\n"
        "left() = Surface In BoundingBox{-0.1, -0.1, -0.1, 0.1, 3.1, 2.1};\n"
        "hole() = Surface In BoundingBox{1.4, 0.9, -0.1, 2.6, 2.1, 2.1};\n"
        "edge() = Curve In BoundingBox{-0.1, -0.1, -0.1, 0.1, 0.1, 2.1};\n"
        "Physical Volume(\"plate body\") = {3}; Physical Volume(\"all\", 77) = {3};\n"
        "Physical Surface(\"left\") = {left()}; Physical Surface(\"hole\") = {hole()}; Physical Curve(9) = "
        "{edge()};\n"
        "Mesh.MeshSizeMax = 0.5; Mesh 3;\n" +
        save_all("o1_") + "SetOrder 2;\n" + save_all("o2_"));
    ASSERT_TRUE(gmsh.good) << gmsh.output();
    for (const std::string order : {"o1_", "o2_"}) {
        const Reading first = gmsh.mesh(order + gmsh_files[0]);
        for (const std::string file : msh_files) {
            SCOPED_TRACE(order + file);
            const Reading r = gmsh.mesh(order + file);
            ASSERT_TRUE(r.good) << r.error();
            EXPECT_EQ(groups_of(r), groups_of(first));
            EXPECT_EQ(joined(r.remarks.notices),
                      "file f: group \"plate body\" is taken as \"plate_body\": a name has no blanks\n");
            EXPECT_EQ(std::int64_t(group(r.mesh, "plate_body").elements.size()), r.mesh.element_num());
            EXPECT_EQ(group(r.mesh, "all").elements, group(r.mesh, "plate_body").elements)
                << "a solid of two groups is one";
            EXPECT_NEAR(area_of(r.mesh, "left")[0], -6, 1e-12);
            EXPECT_FALSE(group(r.mesh, "hole").faces.empty());
            for (const std::int32_t n : group(r.mesh, "physical_1_9").nodes)
                EXPECT_EQ(r.mesh.coordinates[3 * n - 3] + r.mesh.coordinates[3 * n - 2], 0);
        }
    }
}

TEST(Gmsh, HexahedraStandInTheProgramsOrder) {
    NEEDS_GMSH;
    const GmshRun gmsh(
        "Point(1) = {0, 0, 0}; Point(2) = {3, 0, 0}; Point(3) = {3, 2, 0}; Point(4) = {0, 2, 0}; Point(5) = "
        "{9, 9, 9};\n"
        "Line(1) = {1, 2}; Line(2) = {2, 3}; Line(3) = {3, 4}; Line(4) = {4, 1}; Curve Loop(1) = {1 : 4};\n"
        "Plane Surface(1) = {1}; Transfinite Curve{1, 3} = 4; Transfinite Curve{2, 4} = 3; Transfinite "
        "Surface{1};\n"
        "Recombine Surface{1}; Extrude {0.5, 0, 5} { Surface{1}; Layers{4}; Recombine; } Mesh 3;\n" +
        save_all("plain") +
        "Physical Volume(\"body\") = {1}; Physical Surface(\"bottom\") = {1}; Physical Point(\"centre\") = "
        "{5};\n" +
        save_all("named"));
    ASSERT_TRUE(gmsh.good) << gmsh.output();
    for (const std::string file : msh_files) {
        SCOPED_TRACE(file);
        const Reading plain = gmsh.mesh("plain" + file), named = gmsh.mesh("named" + file);
        for (const Reading* r : {&plain, &named}) {
            ASSERT_TRUE(r->good) << r->error();
            EXPECT_TRUE(r->mesh.kind == ElementKind::hexahedron && r->mesh.node_num() == 60);
            const JacobianCheck check = check_hexahedra(mesh_of(r->mesh));
            EXPECT_NEAR(check.volume, 30, 30e-12);
            EXPECT_NEAR(check.smallest_element, 30.0 / 24, 1e-11);  // Gmsh's own places
        }
        EXPECT_TRUE(contains(groups_of(plain), "volume_1: 24 0 60\nsurface_1: 0 6 12\nsurface_"))
            << groups_of(plain);
        EXPECT_EQ(plain.mesh.groups.size(), 7u);
        EXPECT_EQ(groups_of(named), "bottom: 0 6 12\nbody: 24 0 60\n");
        EXPECT_NEAR(area_of(named.mesh, "bottom")[2], -6, 1e-12);
        EXPECT_TRUE(contains(named.remarks.notices,
                             "f: nodes of its groups that no solid element has are left out: 1"));
        EXPECT_TRUE(contains(named.remarks.notices, "group \"centre\" has nothing of the solid elements"));
    }
}

// ---- small files made here

// Writes numbers as text or as binary ones of either byte order.
struct Writer {
    bool binary = false, swapped = false;
    std::string text;
    template <typename T>
    Writer& put(T value) {
        char bytes[sizeof value];
        std::memcpy(bytes, &value, sizeof value);
        if (swapped) std::reverse(bytes, bytes + sizeof value);
        text += binary ? std::string(bytes, sizeof value) : formatted("%.17g ", double(value));
        return *this;
    }
    Writer& ints(std::initializer_list<int> values) {
        for (int v : values) put(v);
        return *this;
    }
    Writer& sizes(std::initializer_list<std::int64_t> values) {
        for (std::int64_t v : values) put(v);
        return *this;
    }
    Writer& reals(std::initializer_list<double> values) {
        for (double v : values) put(v);
        return *this;
    }
    Writer& say(const std::string& words) { return text += words, *this; }
    Writer& line() { return binary ? *this : say("\n"); }
    void begin(const char* version) {
        say("$MeshFormat\n" + std::string(version) + (binary ? " 1 8\n" : " 0 8\n"));
        if (binary) ints({1}).say("\n");
        say("$EndMeshFormat\n$PhysicalNames\n3\n0 7 \"loose point\"\n2 5 \"bottom\"\n3 8 "
            "\"bottom\"\n$EndPhysicalNames\n");
    }
};
const double places[6][3] = {{9, 9, 9}, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}};

// Two tetrahedra, the face that bounds the first below, an edge of it and a point apart.
std::string small22(bool binary, bool swapped) {
    Writer w{binary, swapped};
    w.begin("2.2");
    w.say("$Nodes\n6\n");
    for (int n = 0; n < 6; ++n) w.ints({n + 10}).reals({places[n][0], places[n][1], places[n][2]}).line();
    w.say(binary ? "\n$EndNodes\n$Elements\n5\n" : "$EndNodes\n$Elements\n5\n");
    const auto element = [&](int number, int type, int physical, std::initializer_list<int> nodes) {
        binary ? w.ints({type, 1, 2, number, physical, 1}) : w.ints({number, type, 2, physical, 1});
        w.ints(nodes).line();
    };
    element(1, 15, 7, {10});
    element(2, 1, 6, {11, 12});
    element(3, 2, 5, {11, 12, 13});
    element(4, 4, 8, {11, 12, 13, 14});
    element(5, 4, 8, {12, 13, 14, 15});
    return w.say(binary ? "\n$EndElements\n" : "$EndElements\n").text;
}
std::string small41(bool binary, bool swapped) {
    Writer w{binary, swapped};
    w.begin("4.1");
    w.say("$Entities\n").sizes({1, 1, 1, 1}).line();
    w.ints({1}).reals({9, 9, 9}).sizes({1}).ints({7}).line();
    for (int physical : {6, -5, 8})
        w.ints({1}).reals({0, 0, 0, 1, 1, 1}).sizes({1}).ints({physical}).sizes({1}).ints({1}).line();
    w.say(binary ? "\n$EndEntities\n$Nodes\n" : "$EndEntities\n$Nodes\n").sizes({2, 6, 10, 15}).line();
    w.ints({0, 1, 0}).sizes({1}).line().sizes({10}).line().reals({9, 9, 9}).line();
    w.ints({3, 1, 0}).sizes({5}).line();
    for (int n = 1; n < 6; ++n) w.sizes({n + 10}).line();
    for (int n = 1; n < 6; ++n) w.reals({places[n][0], places[n][1], places[n][2]}).line();
    w.say(binary ? "\n$EndNodes\n$Elements\n" : "$EndNodes\n$Elements\n").sizes({4, 5, 1, 5}).line();
    w.ints({0, 1, 15}).sizes({1}).line().sizes({1, 10}).line();
    w.ints({1, 1, 1}).sizes({1}).line().sizes({2, 11, 12}).line();
    w.ints({2, 1, 2}).sizes({1}).line().sizes({3, 11, 12, 13}).line();
    w.ints({3, 1, 4}).sizes({2}).line().sizes({4, 11, 12, 13, 14}).line().sizes({5, 12, 13, 14, 15}).line();
    return w.say(binary ? "\n$EndElements\n" : "$EndElements\n").text;
}
const std::string text22 = small22(false, false), text41 = small41(false, false);

TEST(Gmsh, SmallFilesAreReadAlikeInEveryLayout) {
    const std::string comment = "$Comments\n$Nodes of nobody\n$EndComments\n";
    std::string crlf = "\xef\xbb\xbf";
    for (const std::string& line : lines_of(text22)) crlf += line + "\r\n";
    std::string far = text41;
    for (std::size_t at; (at = far.find("14")) != std::string::npos;) far.replace(at, 2, "4000000");
    const std::string variants[] = {text22,
                                    small22(true, false),
                                    small22(true, true),
                                    text41,
                                    small41(true, false),
                                    small41(true, true),
                                    comment + text22,
                                    crlf,
                                    far,
                                    replaced(text41, "$Nodes\n", comment + "$Nodes\n"),
                                    replaced(replaced(text22, "Elements\n5", "Elements\n6"), "4 4 2 8 1",
                                             "4 4 2 8 1 11 12 13 14\n4 4 2 8 1")};
    for (const std::string& text : variants) {
        const Reading r = read(text, 0.001);
        ASSERT_TRUE(r.good) << r.error() << text;
        EXPECT_EQ(r.mesh.connectivity, (std::vector<std::int32_t>{1, 2, 3, 4, 2, 3, 4, 5}));
        ASSERT_EQ(r.mesh.node_num(), 5) << "the point apart is left out";
        EXPECT_EQ(r.mesh.coordinates[3], 0.001);
        EXPECT_EQ(groups_of(r), "bottom: 0 1 3\nbottom_2: 2 0 5\nphysical_1_6: 0 0 2\n");
        EXPECT_EQ(area_of(r.mesh, "bottom")[2], -0.5e-6);
        EXPECT_EQ(joined(r.remarks.notices),
                  "file f: nodes of its groups that no solid element has are left out: 1\n"
                  "file f: group \"loose point\" has nothing of the solid elements and is left out\n"
                  "file f: group \"bottom\" is taken as \"bottom_2\": another one has its name\n");
        EXPECT_TRUE(r.mesh.lines.starts_with("  Nelem:2\n  element_type:1\n  Nnode:5\n"));
    }
    Collected stop;
    stop.cancel();
    Reading r;
    EXPECT_FALSE(read_msh_text(text22, "f", 1, r.mesh, r.remarks, stop));
    EXPECT_TRUE(r.remarks.errors.empty());
}

TEST(Gmsh, SaysWhereAFileIsWrong) {
    expect_errors(
        read_msh_text, text22,
        {{"2.2 0", "4.0 0",
          "line 2: its format is Gmsh's 4.0, 2.2 or 4.1 is expected: convert it with \"gmsh -save"},
         {"$MeshFormat\n2.2", "$NOD\n2.2", "file f, line 1: its format is Gmsh's 1, 2.2 or 4.1"},
         {"$Nodes\n6", "$Nodes\n-6", "line 11 \"-6\": the number of nodes expected"},
         {"$Nodes\n6", "$Nodes\n2000000000",
          "line 11 \"2000000000\": the number of nodes, no more than the file can"},
         {"$Nodes\n6", "$Nodes\n5", "line 17 \"15\": \"$EndNodes\" expected"},
         {"$Nodes\n6", "$Nodes\n7", "line 18 \"$EndNodes\": a node number expected"},
         {"10 9 9 9", "10 9 9 nan", "line 12 \"nan\": a coordinate expected"},
         {"13 0 1 0", "11 0 1 0", "line 15 \"11\": a node number that did not come before expected"},
         {"6 1 11 12", "6 1 11 99", "\"99\": a node of section \"$Nodes\" expected"},
         {"11 12 13 14", "11 12 13 11", "line 24: element 4 has a node twice: different nodes are expected"},
         {"4 4 2 8", "4 4 -2 8", "line 24 \"-2\": the number of tags expected"},
         {"4 4 2 8", "4 6 2 8",
          "line 24: element 4 is a 6-node wedge: 4-node or 10-node tetrahedra or 8-node"},
         {"4 4 2 8", "4 777 2 8", "line 24: element 4 is of type 777: "},
         {"12 13 14 15 \n", "12 13 15 14 \n",
          "1 of its 2 tetrahedra are left-handed, the others right-handed "
          "(left-handed is for example element 5): Gmsh writes right-handed ones"},
         {"5 4 2 8 1 12", "5 5 2 8 1 12 11 13 10 12",
          "element 5 is an 8-node hexahedron, one before is a 4-node tetra"},
         {"$EndElements", "$Elements", "\"$EndElements\" expected"},
         {"Elements\n5", "Nodes\n5", "\"$Nodes\": one section of this name expected"}});
    expect_errors(
        read_msh_text, text41,
        {{"1 1 1 1 \n", "1 9999 1 1 \n", "the number of entities, no more than the file can hold, expected"},
         {"3 1 0 5", "3 1 0 4", "the section's blocks have 5 nodes, 6 expected"},
         {"3 1 0 5", "3 1 0 6", "\"6\": no more nodes than the section's expected"},
         {"3 1 4 2", "2 1 4 2", "element 4 is a 4-node tetrahedron: elements of dimension 2 are expected"},
         {"4 5 1 5 \n", "4 6 1 5 \n", "the section's blocks have 5 elements, 6 expected"}});
    std::string binary = small41(true, false);
    const std::size_t at = binary.find("$Nodes\n") + 7 + 8;
    binary[at + 6] = 1;
    EXPECT_EQ(read(binary).error(), "file f, byte " + std::to_string(at) +
                                        " \"281474976710662\": the number of nodes, "
                                        "no more than the file can hold, expected");
    EXPECT_TRUE(contains(read(text22.substr(0, text22.find("$Elements"))).error(),
                         "line 19: the file ends where section \"$Elements\" is expected"));
    EXPECT_EQ(read("mesh3d\n").error(), "file f is a Netgen volume mesh (mesh3d): a Gmsh mesh is expected");
}

TEST(Gmsh, LeftHandedSolidsAreTurnedAndTheirGroupsWithThem) {
    std::string text = "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n8\n";
    for (int n = 0; n < 8; ++n)
        text += formatted("%d %d %d %d\n", n + 1, (n + 1) / 2 % 2, n / 2 % 2,
                          n < 4 ? 1 : 0);  // top and bottom changed
    text += "$EndNodes\n$Elements\n2\n1 3 2 5 1 1 2 3 4\n2 5 2 8 1 1 2 3 4 5 6 7 8\n$EndElements\n";
    const Reading r = read(text);
    ASSERT_TRUE(r.good) << r.error();
    EXPECT_EQ(joined(r.remarks.notices),
              "file f: its hexahedra are left-handed, Gmsh's right-handed: they are turned\n");
    EXPECT_NEAR(check_hexahedra(mesh_of(r.mesh)).smallest, 1, 1e-14);
    EXPECT_EQ(area_of(r.mesh, "physical_2_5")[2], 1);
}

TEST(Gmsh, PartsAreReadFromTheirFiles) {
    const TempFolder folder;
    Part part = make_part("MSH", {}, {});
    part.parent_name = folder.write("m.msh", text41);
    const Built built = build({part});
    EXPECT_TRUE(built.good && built.mesh.element_num() == 2) << joined(built.remarks.errors);
    EXPECT_TRUE(contains(built.lines,
                         "MSH:FILE OPEN !!\n  Nelem:2\n  element_type:1\n  Nnode:5\n"
                         "  group:bottom elements=0, faces=1, nodes=3\n"));
    EXPECT_TRUE(contains(built.lines, "FILE CLOSE !!\n"));
    part.parent_name = "no_such.msh";
    EXPECT_TRUE(contains(build({part}).lines, "MSH:FILE OPEN ERROR\n"));
}

TEST(Gmsh, DamagedFilesGiveAnErrorOrASoundMesh) {
    for (const std::string& text : {text22, text41, small22(true, false), small41(true, false)}) {
        damage(read_msh_text, text, 10000);
        EXPECT_FALSE(read(text.substr(0, text.size() - 14)).good);
    }
}

}  // namespace
