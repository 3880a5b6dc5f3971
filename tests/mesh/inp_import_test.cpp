#include "mesh/inp_import.h"

#include <numbers>

#include "model/format.h"
#include "tool_runs.h"

using namespace kestralum;
using namespace kestralum::testing;
using std::numbers::pi;

namespace {

Reading read_deck(const std::string& text, double unit = 1) {
    return read(read_inp, text, unit);
}

// The box 0 … 2, 0 … 1, 0 … 3 as one hexahedron; its surfaces as S1 … S6 should be.
const std::string box_nodes =
    "*NODE, NSET=NALL\n11, 0,0,0\n12, 2,0,0\n13, 2,1,0\n14, 0,1,0\n"
    "25, 0,0,3\n26, 2,0,3\n27, 2,1,3\n28, 0,1,3\n";
const Vec3 box_sides[] = {{0, 0, -2}, {0, 0, 2}, {0, -6, 0}, {3, 0, 0}, {0, 6, 0}, {-3, 0, 0}};
const std::string box_deck = box_nodes + "*ELEMENT, TYPE=C3D8, ELSET=ALL\n7, 11,12,13,14,25,26,27,28\n";

std::string surfaces_of(const std::string& element, int sides) {
    std::string text;
    for (int s = 1; s <= sides; ++s)
        text += formatted("*SURFACE, NAME=S%d, TYPE=ELEMENT\n%s, S%d\n", s, element.c_str(), s);
    return text;
}
void expect_sides(const std::string& deck, std::initializer_list<Vec3> sides, double volume) {
    const Reading reading = read_deck(deck);
    ASSERT_TRUE(reading.good) << reading.error();
    EXPECT_NEAR(volume_of(reading.mesh), volume, 1e-14);
    int s = 0;
    for (const Vec3& side : sides) {
        const Vec3 area = area_of(reading.mesh, formatted("S%d", ++s));
        EXPECT_LT(norm(minus(area, side)), 1e-14)
            << "S" << s << ": " << area[0] << " " << area[1] << " " << area[2];
    }
}

TEST(Inp, SidesAreFacesOfElementsOfEitherHand) {
    const auto& b = box_sides;
    expect_sides(box_deck + surfaces_of("7", 6), {b[0], b[1], b[2], b[3], b[4], b[5]}, 6);
    expect_sides(
        replaced(box_deck, "11,12,13,14,25,26,27,28", "25,26,27,28,11,12,13,14") + surfaces_of("ALL", 6),
        {b[1], b[0], b[2], b[3], b[4], b[5]}, 6);
    const std::string corners = "*NODE\n1,0,0,0\n2,1,0,0\n3,0,1,0\n4,0,0,1\n",
                      middles = "5,.5,0,0\n6,.5,.5,0\n7,0,.5,0\n8,0,0,.5\n9,.5,0,.5\n10,0,.5,.5\n",
                      element = "*ELEMENT, TYPE=";
    const Vec3 x{-0.5, 0, 0}, y{0, -0.5, 0}, z{0, 0, -0.5}, sum{0.5, 0.5, 0.5};
    expect_sides(corners + element + "C3D4\n1,1,2,3,4\n" + surfaces_of("1", 4), {z, y, sum, x}, 1 / 6.0);
    expect_sides(corners + element + "C3D4\n1,1,3,2,4\n" + surfaces_of("1", 4), {z, x, sum, y}, 1 / 6.0);
    expect_sides(corners + middles + element + "C3D10M\n1,1,2,3,4,5,6,7,\n8,9,10\n" + surfaces_of("1", 4),
                 {z, y, sum, x}, 1 / 6.0);
    expect_sides(corners + middles + element + "C3D10\n1,1,3,2,4,7,6,5,8,10,9\n" + surfaces_of("1", 4),
                 {z, x, sum, y}, 1 / 6.0);
}

TEST(Inp, ReadsEveryWritingAlike) {
    const std::string sets =
        "*NSET, NSET=LOW\n11,12,13,14\n*ELSET, ELSET=ONE\n7\n*SURFACE, NAME=TOP\nONE, S2\n";
    const Reading expected = read_deck(box_deck + sets, 0.001);
    ASSERT_TRUE(expected.good) << expected.error();
    EXPECT_EQ(joined(expected.remarks.notices), "");
    EXPECT_EQ(expected.mesh.connectivity, (std::vector<std::int32_t>{5, 1, 4, 8, 6, 2, 3, 7}));
    EXPECT_EQ(expected.mesh.coordinates[3], 0.002);
    EXPECT_EQ(group(expected.mesh, "LOW").nodes, (std::vector<std::int32_t>{1, 2, 3, 4}));
    EXPECT_EQ(group(expected.mesh, "ONE").elements, std::vector<std::int32_t>{0});

    const TempFolder folder;
    folder.write("nodes.txt", "12, 2,0,0\n13, 2,1,0\n");
    const std::string upper = box_deck + sets;
    std::string lower = upper, crlf, spaced;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return static_cast<char>(std::tolower(c)); });
    for (const std::string& line : lines_of(upper)) {
        crlf += line + "\r\n";
        spaced += "  " + line + " \n\n** comment, *NODE\n";
    }
    const std::string variants[] = {
        "\xef\xbb\xbf" + crlf,
        replaced(spaced, "11,12,13,14,25", " 11 , 12,\t13 ,14 ,+25"),
        replaced(replaced(upper, "11, 0,0,0", "11, , 0.D0, .0"), "26, 2,0,3", "26, 2.0d+00, ,3.,0,0,1"),
        replaced(upper, "13,14,25,26", "13,14,\n** between\n25,26"),
        replaced(upper, "*ELEMENT, TYPE=C3D8, ELSET=ALL", "*Element,\n Elset = \"ALL\" ,\n type = C3D8R"),
        replaced(replaced(upper, "LOW\n11,12,13,14", "LOW, GENERATE\n11, 14"), "ONE\n7", "ONE\nALL"),
        replaced(replaced(upper, "12, 2,0,0\n13, 2,1,0\n", "*INCLUDE, INPUT=nodes.txt\n"), "TOP\nONE",
                 "TOP\n7"),
        replaced(upper, "LOW\n", "LOW\n11, 12\n*MATERIAL, NAME=M\n*ELASTIC\n1,2\n*NSET, NSET=LOW\n"),
        lower};
    for (const std::string& text : variants) {
        Reading reading;
        reading.good =
            read_inp(text, folder.file("deck.inp"), 0.001, reading.mesh, reading.remarks, SilentProgress());
        ASSERT_TRUE(reading.good) << reading.error() << text;
        EXPECT_EQ(reading.mesh.connectivity, expected.mesh.connectivity);
        EXPECT_EQ(reading.mesh.coordinates, expected.mesh.coordinates) << text;
        ASSERT_EQ(reading.mesh.groups.size(), 5u);
        for (std::size_t g = 0; g < 5; ++g)
            EXPECT_EQ(reading.mesh.groups[g].nodes, expected.mesh.groups[g].nodes) << text;
    }
    Reading turned = read_deck(replaced(upper, "*ELSET", "*STEP\n*STATIC\n1,1\n*END STEP\n*STEP\n*ELSET"));
    EXPECT_EQ(joined(turned.remarks.notices),
              "file f: passed over, being no part of the mesh: *STEP (2), *STATIC\n");
}

// Instances of the box as an assembly writes them, with sets of the part, of an instance and of the assembly.
const std::string assembly_deck =
    "*HEADING\n two boxes\n*PART, NAME=Box\n" + box_deck +
    "*NSET, NSET=Low\n11,12,13,14\n*END PART\n*PART, NAME=Spare\n*NODE\n1,0,0,0\n*END PART\n*ASSEMBLY, "
    "NAME=A\n"
    "*INSTANCE, NAME=B-1, PART=box\n*END INSTANCE\n"
    "*INSTANCE, NAME=B-2, PART=Box\n 5, -1, 0.5\n 4,1,2, 5,3,0, 40.\n*ELSET, ELSET=Own\n7\n*END INSTANCE\n"
    "*NODE, NSET=REF\n1, 9,9,9\n*NSET, NSET=Both, INSTANCE=B-1\n11\n*NSET, NSET=Both, INSTANCE=B-2\nLow\n"
    "*NSET, NSET=Corner\nB-2.28, B-1.Low\n*NSET, NSET=Nodes, ELSET=B-2.Own\n"
    "*ELSET, ELSET=_T_S4, INTERNAL, INSTANCE=B-2\n7\n*SURFACE, TYPE=ELEMENT, NAME=T\n_T_S4, S4\n"
    "*SURFACE, TYPE=NODE, NAME=Ring\nCorner, 1.\n*END ASSEMBLY\n";

TEST(Inp, InstancesArePlacedCopiesWithTheirSets) {
    const Reading reading = read_deck(assembly_deck);
    ASSERT_TRUE(reading.good) << reading.error();
    const PartMesh& mesh = reading.mesh;
    ASSERT_EQ(mesh.node_num(), 16);
    EXPECT_NEAR(volume_of(mesh), 12, 1e-13);
    // turned by the vector form of the rotation (Rodrigues 1840)
    const Vec3 a{4, 1, 2}, n = unit(Vec3{1, 2, -2});
    const double c = std::cos(40 * pi / 180), s = std::sin(40 * pi / 180);
    const auto turn = [&](const Vec3& v) {
        const Vec3 along = times(dot(n, v), n);
        return plus(along, plus(times(c, minus(v, along)), times(s, cross(n, v))));
    };
    for (std::int64_t k = 0; k < 8; ++k) {
        const Vec3 moved = plus(triple(mesh.coordinates, k), Vec3{5, -1, 0.5});
        EXPECT_LT(norm(minus(triple(mesh.coordinates, 8 + k), plus(a, turn(minus(moved, a))))), 1e-14);
    }
    EXPECT_LT(norm(minus(area_of(mesh, "T"), turn(box_sides[3]))), 1e-14);
    using Numbers = std::vector<std::int32_t>;
    EXPECT_EQ(group(mesh, "B-1.Low").nodes, (Numbers{1, 2, 3, 4}));
    EXPECT_EQ(group(mesh, "B-2.Low").nodes, (Numbers{9, 10, 11, 12}));
    EXPECT_EQ(group(mesh, "B-2.Own").elements, Numbers{1});
    EXPECT_EQ(group(mesh, "Both").nodes, (Numbers{1, 9, 10, 11, 12}));
    EXPECT_EQ(group(mesh, "Corner").nodes, (Numbers{1, 2, 3, 4, 16}));
    EXPECT_EQ(group(mesh, "Ring").nodes, group(mesh, "Corner").nodes);
    EXPECT_EQ(group(mesh, "Nodes").nodes.size(), 8u);
    EXPECT_FALSE(contains(mesh.lines, "_T_S4"));
    EXPECT_TRUE(contains(reading.remarks.notices, "of no solid element: REF"));
}

// What joins or loads nodes is no part of the mesh: springs between nodes, dampers, masses, rigid bodies.
TEST(Inp, SpringsAndTheirLikeArePassedOver) {
    const Reading plain = read_deck(box_deck);
    const Reading joined_up = read_deck(
        box_deck +
        "*NODE, NSET=REF\n50, 9,9,9\n51, 9,9,9\n"
        "*ELEMENT, TYPE=SPRING2, ELSET=SPRINGS\n20, 11, 13\n21, 14, 50\n*SPRING, ELSET=SPRINGS\n1,1\n1e6\n"
        "*Element, type=SpringA, elset=AXIAL\n22, 11, 28\n*ELEMENT, TYPE=SPRING1, ELSET=GROUND\n23, 12\n"
        "*ELEMENT, TYPE=MASS, ELSET=POINT\n24, 27\n*MASS, ELSET=POINT\n0.5\n"
        "*ELEMENT, TYPE=ROTARYI, ELSET=TURN\n25, 50\n*ELEMENT, TYPE=DASHPOTA, ELSET=DAMP\n26, 25, 26\n"
        "*ELSET, ELSET=MIXED\n7, 20, SPRINGS\n*ELSET, ELSET=ENDS\nAXIAL, 23\n"
        "*NSET, NSET=OF, ELSET=AXIAL\n*RIGID BODY, NSET=REF, REF NODE=50, ROT NODE=51\n"
        "*EQUATION\n2\n50, 1, 1., 51, 1, -1.\n");
    ASSERT_TRUE(joined_up.good) << joined_up.error();
    const PartMesh& mesh = joined_up.mesh;
    EXPECT_EQ(mesh.connectivity, plain.mesh.connectivity);
    EXPECT_EQ(mesh.coordinates, plain.mesh.coordinates);
    using Numbers = std::vector<std::int32_t>;
    EXPECT_EQ(group(mesh, "SPRINGS").nodes, (Numbers{1, 3})) << "node 50 has no solid";
    EXPECT_EQ(group(mesh, "POINT").nodes, Numbers{7});
    EXPECT_EQ(group(mesh, "MIXED").elements, Numbers{0});
    EXPECT_EQ(group(mesh, "ENDS").nodes, (Numbers{1, 2, 8}));
    EXPECT_EQ(group(mesh, "OF").nodes, (Numbers{1, 8}));
    const std::string notices = joined(joined_up.remarks.notices);
    EXPECT_TRUE(
        contains(notices,
                 "file f: elements that are no solids serve groups only: SPRING2 (2), SPRINGA, SPRING1, "
                 "MASS, ROTARYI, DASHPOTA\n"))
        << notices;
    EXPECT_TRUE(contains(
        notices, "file f: passed over, being no part of the mesh: *SPRING, *MASS, *RIGID BODY, *EQUATION\n"))
        << notices;
}

TEST(Inp, SaysWhereADeckIsWrong) {
    const std::string deck = box_deck + "*NSET, NSET=LOW\n11,12\n*SURFACE, NAME=TOP\nALL, S2\n";
    const std::string second = "\n9, 11,12,13,14";
    expect_errors(
        read_inp, deck,
        {{"12, 2,0,0", "12, 2,0,x", "file f, line 3 \"x\": a coordinate expected"},
         {"12, 2,0,0", "12, 2,nan,0", "line 3 \"nan\": a coordinate expected"},
         {"12, 2,0,0", "12, 2,0", "line 3: nothing where a coordinate is expected"},
         {"12, 2,0,0", "0, 2,0,0", "line 3 \"0\": a node number expected"},
         {"12, 2,0,0", "11, 2,0,0", "line 3 \"11\": a node number that did not come before expected"},
         {"12, 2,0,0", "122, 2,0,0", "line 11: element 7 has node 12, which is not defined"},
         {"13,14,25", "13,13,25", "line 11: element 7 has node 13 twice"},
         {"26,27,28", "26,27", "line 11: nothing where node 8 of the element's 8 is expected"},
         {"26,27,28", "26,27,", "line 12 \"*NSET, NSET=LOW\": node 8 of the element's 8 expected"},
         {"26,27,28", "26,27,28,29", "line 11 \"29\": the end of the line expected"},
         {"27,28", "27,28\n7, 11,12,13,14,25,26,27,28", "line 12 \"7\": an element number that did not come"},
         {"27,28", "27,28\n*ELEMENT, TYPE=C3D4" + second,
          "line 13: element 9 is a 4-node tetrahedron (C3D4), the ones"},
         {"27,28", "27,28\n*ELEMENT, TYPE=C3D6" + second, "line 13: element 9 is a 6-node wedge (C3D6)"},
         {"27,28", "27,28\n*ELEMENT, TYPE=C3D20R" + second, "element 9 is a 20-node hexahedron (C3D20R)"},
         {"27,28", "27,28\n*ELEMENT, TYPE=AC3D4" + second, "element 9 is of type AC3D4, which is not known"},
         {"C3D8", "S3", "no solid elements"},
         {"11,12\n*S", "11,LOWER\n*S", "line 13 \"LOWER\": a node number or a node set's name expected"},
         {"11,12\n*S", std::string(300, '.') + "\n*S", "a name of at most 255 characters expected"},
         {"ALL, S2", "ALL, S7", "line 15 \"S7\": a side, S1 to S6, expected"},
         {"ALL, S2", "ALL, SPOS", "line 15: a surface has side SPOS or SNEG of element 7"},
         {"NSET=LOW", "NSET=LOW, INSTANCE=I", "line 12 \"I\": the name of an instance expected"},
         {"NSET=LOW\n11,12", "NSET=LOW, GENERATE\n11,9", "line 13 \"9\": a last number, at least the first,"},
         {"*NSET, NSET", "*NSET, SET", "line 12 \"*NSET\": NSET= with a name expected"},
         {"*SURFACE, NAME=TOP\nALL, S2\n", "*PART, NAME=P\n", "the file ends where *END PART is expected"},
         {"*NSET", "*INCLUDE, INPUT=no.inp\n*NSET",
          "line 12 \"no.inp\": a file that can be read (No such file"},
         {"*NSET", "*INCLUDE, INPUT=f\n*NSET", "line 12 \"f\": a file that does not include itself expected"},
         {"*NSET", "*NGEN\n1,2\n*NSET", "line 12 \"*NGEN\": nodes and elements with all their numbers"},
         {"*NODE", "*NODE, SYSTEM=C", "\"C\": SYSTEM=R, right-angled coordinates, expected"},
         {"*NODE", "1\n*NODE", "line 1 \"1\": a keyword, such as *NODE, expected"},
         {"*NODE", "$MeshFormat\n*NODE",
          "file f is a Gmsh mesh ($MeshFormat): an Abaqus input deck is expected"}});
    const std::string placed = "*INSTANCE, NAME=B-2, PART=Box\n 5, -1, 0.5\n";
    expect_errors(read_inp, assembly_deck,
                  {{"PART=box", "PART=bax", "\"bax\": the name of a part expected"},
                   {"5, -1, 0.5", "5, -1", "nothing where 3 numbers is expected"},
                   {"4,1,2, 5,3,0", "4,1,2, 4,1,2", "two different points of the axis"},
                   {placed, "*INSTANCE, NAME=B-1, PART=Box\n", "\"B-1\": a name that no instance before has"},
                   {"ELSET=B-2.Own", "ELSET=B-2.7", "\"B-2.7\": the name of an element set expected"},
                   {"B-2.28", "B-3.28", "\"B-3.28\": a node number or a node set's name expected"}});
    EXPECT_TRUE(contains(read_deck("*NODE\n1,0,0,0\n").error(), "no solid elements"));
    PartMesh mesh;
    Remarks full;
    EXPECT_FALSE(read_inp_text(assembly_deck, "f", 1, {1, 100}, mesh, full, SilentProgress()));
    EXPECT_TRUE(contains(full.errors, "more than the 100 nodes and 1 elements"));

    const TempFolder folder;
    folder.write("a.inp", "*INCLUDE, INPUT=b.inp\n");
    folder.write("b.inp", "** comment\n*INCLUDE, INPUT=a.inp\n");
    folder.write("c.inp", "*NODE\n1,0,0,0\n2,0,0,?\n");
    for (const auto& [file, error] :
         {std::pair("a.inp", "b.inp, line 2 \"a.inp\": a file that does not include"),
          std::pair("c.inp", "c.inp, line 3 \"?\": a coordinate expected")}) {
        Remarks remarks;
        EXPECT_FALSE(read_inp(formatted("*INCLUDE, INPUT=%s\n", file), folder.file("deck.inp"), 1, mesh,
                              remarks, SilentProgress()));
        EXPECT_TRUE(contains(remarks.errors, error)) << joined(remarks.errors);
    }
}

TEST(Inp, StopsOnRequestAndSaysWhenMemoryIsShort) {
    const StopsAtLook counting;
    PartMesh mesh;
    Remarks none;
    ASSERT_TRUE(read_inp(assembly_deck, "f", 1, mesh, none, counting));
    ASSERT_GT(counting.looks, 5);
    for (std::int64_t look = 1; look <= counting.looks; ++look)
        for (const bool no_memory : {false, true}) {
            Remarks remarks;
            EXPECT_FALSE(read_inp(assembly_deck, "f", 1, mesh, remarks, StopsAtLook(look, no_memory)))
                << look;
            EXPECT_EQ(joined(remarks.errors), no_memory ? "file f: not enough memory to read it\n" : "")
                << look;
            EXPECT_EQ(mesh.node_num() + mesh.element_num(), 0);
        }
}

TEST(Inp, DamagedDecksGiveAnErrorOrASoundMesh) {
    for (const std::string& deck :
         {assembly_deck, box_deck + surfaces_of("ALL", 6) + "*NSET, NSET=N, GENERATE\n11, 28, 1\n"})
        damage(read_inp, deck, 5000);
}

}  // namespace
