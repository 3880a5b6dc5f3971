#include <numbers>

#include "mesh/stl_import.h"
#include "mesh/tetra_order.h"
#include "mesh/vol_import.h"
#include "model/format.h"
#include "tool_runs.h"

using namespace kestralum;
using namespace kestralum::testing;
using std::numbers::pi;

namespace {

const std::string folder = KESTRALUM_SOURCE_DIR "/data/netgen/";

Part import_part(const char* keyword, const std::string& path) {
    Part part = make_part(keyword, {}, {});
    part.parent_name = path;
    return part;
}

Reading read_sample(const std::string& name) {
    return read(name.ends_with("stl") ? read_stl_text : read_vol_text, read_file(folder + name));
}

struct VolFile {
    const char* name;
    int elements, nodes;
    ElementKind kind;
    double volume;  // of the body, 0 unknown; the cylinder's mesh has its chords
    double within;
};

// clang-format off
const VolFile vol_files[] = {
    {"cube_csg_o1.vol", 6, 8, ElementKind::tetrahedron4, 1, 1e-12},
    {"cube_csg_o2.vol", 6, 27, ElementKind::tetrahedron10, 1, 1e-12},
    {"cube_stl_o1.vol", 12, 9, ElementKind::tetrahedron4, 1, 1e-12},
    {"cylinder_csg_o1.vol", 397, 157, ElementKind::tetrahedron4, pi / 2, 0.03},
    {"cylinder_csg_o2.vol", 397, 854, ElementKind::tetrahedron10, pi / 2, 0.03},
    {"part1_stl_o1.vol", 327, 115, ElementKind::tetrahedron4, 0, 0}
};
// clang-format on

TEST(Vol, NetgenFilesLoadAsClosedBodies) {
    for (const VolFile& file : vol_files) {
        SCOPED_TRACE(file.name);
        const auto [good, mesh, remarks, lines] = build({import_part("VOL", folder + file.name)});
        ASSERT_TRUE(good && remarks.notices.empty()) << joined(remarks.errors) << joined(remarks.notices);
        EXPECT_EQ(mesh.node_num(), file.nodes);
        EXPECT_EQ(mesh.element_type, file.kind);
        const JacobianCheck tetrahedra = check_tetrahedra(mesh);
        EXPECT_GT(tetrahedra.smallest, 0);
        if (file.volume > 0) {
            EXPECT_NEAR(tetrahedra.volume, file.volume, file.within * file.volume);
        }
        EXPECT_EQ(count_bodies(mesh), 1);
        // on a curved surface the second-order faces enclose more than the straight tetrahedra
        EXPECT_NEAR(volume_inside_surface(mesh), tetrahedra.volume,
                    (file.kind == ElementKind::tetrahedron10 ? file.within : 1e-12) * tetrahedra.volume);
        EXPECT_TRUE(contains(lines, formatted("  Nelem:%d\n  element_type:%d\n  Nnode:%d\nFILE CLOSE !!\n",
                                              file.elements, static_cast<int>(file.kind), file.nodes)));
    }
}

TEST(Vol, TurnsRightHandedTetrahedraAndRefusesWhatHasNoOneOrder) {
    constexpr int mirrored[] = {0, 2, 1, 3, 6, 5, 4, 7, 9, 8}, shuffled[] = {0, 1, 2, 3, 5, 6, 4, 7, 8, 9};
    const auto permuted = [](const PartMesh& mesh, const int* order, std::int64_t elements) {
        PartMesh out = mesh;
        const int per = nodes_per_element(mesh.kind);
        for (std::int64_t k = 0; k < per * elements; ++k)
            out.connectivity[k] = mesh.connectivity[k / per * per + order[k % per]];
        return out;
    };
    for (const VolFile& file : vol_files) {
        SCOPED_TRACE(file.name);
        const PartMesh good = read_sample(file.name).mesh;
        PartMesh mesh = permuted(good, mirrored, file.elements);
        Remarks turned, mixed, middles;
        EXPECT_TRUE(check_tetra_order("f", mesh, turned, SilentProgress()));
        EXPECT_EQ(mesh.connectivity, good.connectivity);
        EXPECT_EQ(joined(turned.notices),
                  "file f: its tetrahedra are right-handed, Netgen's left-handed: they are turned\n");
        mesh = permuted(good, mirrored, 2);
        EXPECT_FALSE(check_tetra_order("f", mesh, mixed, SilentProgress()));
        EXPECT_TRUE(contains(mixed.errors, "file f: 2 of its " + std::to_string(file.elements) +
                                               " tetrahedra are right-handed, the others left-handed "
                                               "(right-handed is for example element 1)"));
        if (file.kind == ElementKind::tetrahedron4) continue;
        mesh = permuted(good, shuffled, file.elements);
        EXPECT_FALSE(check_tetra_order("f", mesh, middles, SilentProgress()));
        EXPECT_TRUE(contains(middles.errors, "in another order than Netgen's"));
    }
}

TEST(Imports, FilesOfAnotherKindAreNamed) {
    const std::tuple<Reader*, std::string, const char*> files[] = {
        {read_vol_text, "$MeshFormat\n4.1 0 8\n",
         "file f is a Gmsh mesh ($MeshFormat): a Netgen .vol file is expected"},
        {read_vol_text, "\x1f\x8b\x08xyz", "file f is compressed (gzip): unpack it first"},
        {read_vol_text, "# vtk DataFile Version 3.0", "file f is a VTK file: a Netgen"},
        {read_vol_text, read_file(folder + "cube.stl"), "file f is an STL surface (solid): a Netgen"},
        {read_stl_text, "mesh3d dimension", "file f is a Netgen volume mesh (mesh3d): an ASCII STL file"}};
    for (const auto& [reader, text, message] : files)
        EXPECT_TRUE(read(reader, text).error().starts_with(message)) << read(reader, text).error();
}

// One tetrahedron in the layout that Netgen writes for STL geometry; one surface record with k = 5.
const std::string small_vol =
    "mesh3d\ndimension\n3\ngeomtype\n11\n\n# surfnr bcnr domin domout np p1 p2 p3\nsurfaceelementsgi\n1\n"
    "5 1 1 0 3 1 2 3 9 9 9\n\n# matnr np p1 p2 p3 p4\nvolumeelements\n1\n1 4 1 2 3 4\n\n"
    "# surfid 0 p1 p2 trignum1 trignum2 domin/surfnr1 domout/surfnr2 ednr1 dist1 ednr2 "
    "dist2\nedgesegmentsgi2\n1\n"
    "1 0 1 2 1 1 0 0 1 0 1 1\n\n# X Y Z\npoints\n5\n0 0 0\n0 1000 0\n1000 0 0\n0 0 1000\n7 7 7\n\nendmesh\n";

TEST(Vol, ReadsEveryLayoutAlike) {
    const PartMesh expected = read(read_vol_text, small_vol, 0.001).mesh;
    EXPECT_EQ(expected.connectivity, (std::vector<std::int32_t>{1, 3, 2, 4}));
    ASSERT_EQ(expected.node_num(), 5) << "unused ones too";
    EXPECT_EQ(expected.coordinates[4], 1.0);
    std::string one_line = small_vol;
    std::replace(one_line.begin(), one_line.end(), '\n', ' ');
    std::string crlf;
    for (const std::string& line : lines_of(small_vol)) crlf += line + "\r\n";
    const std::string plain = replaced(small_vol, "surfaceelementsgi", "surfaceelements"),
                      surface = "5 1 1 0 3 1 2 3 9 9 9";
    const std::string variants[] = {
        one_line,
        "\xef\xbb\xbf" + crlf,
        replaced(one_line, "# surfnr", "\n# surfnr"),  // a '#' line that holds the data too
        "# Generated by NETGEN 6.2\n" +
            replaced(small_vol, "# surfnr", "facedescriptors\n1\n1 1 0 0 0\n\n# surfnr"),
        replaced(small_vol, "edgesegmentsgi2", "edgesegmentsgi3"),
        replaced(replaced(small_vol, "surfaceelementsgi", "surfaceelementsuv"), "9 9 9",
                 "0.5 0.5 0.5 0.5 0.5 0.5"),
        replaced(plain, surface, "2 1 1 0 3 1 2 3"),
        replaced(plain, surface, "1 1 1 0 3 1 2 3"),
        replaced(small_vol, "# surfnr", "materials\n2\n1 points\n2 volumeelements\n# surfnr")};
    for (const std::string& text : variants) {
        const Reading reading = read(read_vol_text, text, 0.001);
        EXPECT_EQ(reading.mesh.connectivity, expected.connectivity);
        EXPECT_EQ(reading.mesh.coordinates, expected.coordinates);
        EXPECT_EQ(reading.mesh.lines, "  surface element sgi:1\n  Nelem:1\n  element_type:1\n  Nnode:5\n");
    }
}

TEST(Vol, SaysWhereAFileIsWrong) {
    expect_errors(
        read_vol_text, small_vol,
        {{"1 4 1 2 3 4", "1 4 1 2 3 6", "token 26 \"6\": a node number up to 5 expected"},
         {"1 4 1 2 3 4", "1 4 1 2 0 4", "token 25 \"0\": a node number expected"},
         {"1 4 1 2 3 4", "1 4 1 2 x 4", "token 25 \"x\": a node number expected"},
         {"1 4 1 2 3 4", "1 8 1 2 3 4", "token 22 \"8\": the node count of a tetrahedron, 4 or 10, expected"},
         {"1\n1 4 1 2 3 4", "2\n1 4 1 2 3 4 1 10 1 2 3 4 1 1 1 1 1 1", "token 28 \"10\": node count 4"},
         {"volumeelements\n1\n", "volumeelements\n2000000000\n", "no more than the file can hold"},
         {"volumeelements\n1\n", "volumeelements\n-1\n",
          "token 20 \"-1\": the number of volume elements expected"},
         {"points\n5\n", "points\n6\n", "token 58 \"endmesh\": a coordinate expected"},
         {"7 7 7", "7 nan 7", "\"nan\": a coordinate expected"},
         {"volumeelements", "volumelements", "section \"volumeelements\" expected"}});
}

TEST(Vol, DomainsAndBoundariesBecomeGroups) {
    const PartMesh cube = read_sample("cube_csg_o2.vol").mesh,
                   cylinder = read_sample("cylinder_csg_o1.vol").mesh;
    ASSERT_EQ(cube.groups.size(), 6u) << "one domain without a name is no group";
    for (const PartGroup& face : cube.groups) EXPECT_NEAR(norm(area_of(cube, face.name)), 1, 1e-14);
    EXPECT_LT(norm(plus(area_of(cube, "face_1"), Vec3{0, 0, 1})), 1e-14);
    EXPECT_EQ(group(cube, "face_2").nodes.size(), 9u) << "mid-side nodes too";
    const double polygon = 13 / 8.0 * std::sin(2 * pi / 13);  // 13 chords, which Netgen makes equal to 1e-5
    EXPECT_LT(norm(minus(area_of(cylinder, "face_2"), Vec3{-polygon, 0, 0})), 1e-5);
    EXPECT_LT(norm(minus(area_of(cylinder, "face_3"), Vec3{polygon, 0, 0})), 1e-5);
    EXPECT_LT(norm(area_of(cylinder, "face_1")), 1e-6) << "closed around the axis";

    const std::string named = replaced(
        small_vol, "endmesh", "materials\n1\n1 steel bar\nbcnames\n2\n1 left side\n2 default\nendmesh");
    const std::string two = replaced(
        replaced(named, "volumeelements\n1\n", "volumeelements\n2\n3 4 1 2 3 5\n"), "7 7 7", "0 0 500");
    const Reading reading = read(read_vol_text, two);
    ASSERT_TRUE(reading.good) << reading.error();
    EXPECT_EQ(group(reading.mesh, "steel").elements, std::vector<std::int32_t>{1});
    EXPECT_EQ(group(reading.mesh, "domain_3").elements, std::vector<std::int32_t>{0});
    EXPECT_EQ(group(reading.mesh, "left_side").faces.size(), 1u);
    EXPECT_EQ(
        read(read_vol_text, replaced(small_vol, "5 1 1 0 3 1 2 3", "5 1 1 0 3 1 2 8")).mesh.groups.size(),
        0u);
}

const std::string facet =
    "facet normal 0 0 1 outer loop vertex 0 0 0 vertex 2000 0 0 vertex 0 3 0 endloop endfacet ";

TEST(Stl, FacetsAreDegenerateHexahedraWithNodesOfTheirOwn) {
    for (const char* name :
         {"solid a ", "solid ", "solid my facet no. 3\n", "SOLID a\n", "\xef\xbb\xbfsolid\r\n"}) {
        const Reading reading = read(read_stl_text, name + facet + facet + "endsolid a", 0.001);
        EXPECT_EQ(reading.error() + joined(reading.remarks.notices), "");
        EXPECT_EQ(reading.mesh.connectivity,
                  (std::vector<std::int32_t>{1, 2, 3, 1, 1, 1, 1, 1, 4, 5, 6, 4, 4, 4, 4, 4}));
        EXPECT_EQ(reading.mesh.node_num(), 6);
        EXPECT_EQ(reading.mesh.coordinates[3], 2.0);
    }
    EXPECT_EQ(read(read_stl_text, "solid a " + facet).remarks.notices.size(), 1u) << "no endsolid";
    EXPECT_EQ(read(read_stl_text, "solid a " + facet + "endsolid a solid b " + facet + "endsolid")
                  .remarks.notices.size(),
              1u);
    expect_errors(read_stl_text, "solid a " + facet + "endsolid",
                  {{"vertex 2000", "vertex 2oo0", "token 15 \"2oo0\": a coordinate expected"},
                   {"vertex 2000", "vertx 2000", "token 14 \"vertx\": \"vertex\" expected"},
                   {"0 3 0 ", "0 inf 0 ", "token 20 \"inf\": a coordinate expected"},
                   {"solid", "sloid", "token 1 \"sloid\": \"solid\" of an ASCII STL file expected"}});
}

// The facets of a mesh as a binary file has them.
std::string binary_stl(const PartMesh& mesh) {
    std::string text = "solid" + std::string(75, ' ');
    const auto add = [&](const auto& value) {
        text.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    add(static_cast<std::uint32_t>(mesh.element_num()));
    for (std::size_t f = 0; f < std::size_t(mesh.element_num()); ++f) {
        for (int k = 0; k < 3; ++k) add(0.0f);
        for (std::size_t k = 0; k < 9; ++k) add(static_cast<float>(mesh.coordinates[9 * f + k]));
        add(std::uint16_t{0});
    }
    return text;
}

TEST(Stl, BinaryFilesAreReadByTheirLength) {
    const PartMesh cube = read_sample("cube.stl").mesh;
    const std::string text = binary_stl(cube);
    const Reading reading = read(read_stl_text, text, 0.001);
    ASSERT_TRUE(reading.good) << reading.error();
    EXPECT_EQ(reading.mesh.connectivity, cube.connectivity);
    for (std::size_t k = 0; k < cube.coordinates.size(); ++k)
        EXPECT_NEAR(reading.mesh.coordinates[k], 0.001 * cube.coordinates[k], 1e-10);
    const std::string infinite = "\x80\x7f";
    std::string bad = text;
    bad.replace(84 + 50 * 2 + 12 + 16 + 2, 2, infinite);
    const std::pair<std::string, const char*> faults[] = {
        {text + "x", "file f is a binary STL file of 685 bytes: 684 are expected for its 12 facets"},
        {text.substr(0, 600), "file f is a binary STL file of 600 bytes: 684 are expected for its 12 facets"},
        {replaced(text, "solid", "Made!").substr(0, 84), "of 84 bytes: 684 are expected"},
        {std::string(50, '\0'), "of 50 bytes: a header of 84 bytes is expected"},
        {bad, "file f, facet 3, byte 212: a finite coordinate expected"}};
    for (const auto& [damaged, message] : faults)
        EXPECT_TRUE(contains(read(read_stl_text, damaged).error(), message)) << message;
}

TEST(Stl, IsASurfaceThatMergesWithNobodyAndDecidesNothing) {
    const auto [good, mesh, remarks, lines] =
        build({import_part("STL", folder + "cube.stl"), import_part("VOL", folder + "cube_stl_o1.vol")});
    ASSERT_TRUE(good) << joined(remarks.errors);
    EXPECT_EQ(mesh.element_type, ElementKind::tetrahedron4);
    EXPECT_TRUE(mesh.element_num() == 12 && mesh.node_num() == 36 + 9);
    ASSERT_EQ(mesh.surface_facets.size(), 36u);
    EXPECT_EQ(mesh.surface_part_id, std::vector<std::int32_t>(12, 0));
    EXPECT_EQ(*std::min_element(mesh.connectivity.begin(), mesh.connectivity.end()), 37);
    for (int k = 0; k < 36; ++k) EXPECT_EQ(mesh.surface_facets[k], k + 1);
    EXPECT_TRUE(contains(lines, "STL:FILE OPEN !!\nNelem1=12\nNnode1=36\nFILE CLOSE !!\n"));
    EXPECT_TRUE(contains(remarks.notices, "left out of analyses"));
}

TEST(Imports, FindTheFileBesideTheModelAndSayWhenThereIsNone) {
    // the record keeps 63 characters of the path, its size text the rest
    Part part = import_part("VOL", "netgen\\" + std::string(60, 'n'));
    part.size_text[0] = "netgen\\cube_csg_o1.vol";
    part.parent_name = "netgen\\cube_csg";
    EXPECT_EQ(build({part}, KESTRALUM_SOURCE_DIR "/data/model.txt").mesh.element_num(), 6);

    const Built missing = build({import_part("VOL", "no_such.vol"), import_part("STL", folder)}, "m.txt");
    EXPECT_FALSE(missing.good);
    ASSERT_EQ(missing.remarks.errors.size(), 2u);
    EXPECT_TRUE(contains(missing.remarks.errors[0], "\"no_such.vol\" cannot be read: No such file"));
    EXPECT_TRUE(contains(missing.lines, "VOL:FILE OPEN ERROR\n"));
    EXPECT_TRUE(contains(missing.lines, "STL:FILE OPEN ERROR\n"));
}

TEST(Imports, FilesCutShortAreRefused) {
    for (const std::string name : {"cube.stl", "cube_csg_o1.vol", "cube_csg_o2.vol", "cube_stl_o1.vol"}) {
        const std::string text = read_file(folder + name);
        const bool stl = name.ends_with("stl");
        const std::size_t data_end = stl ? 0 : text.find("# ", text.find("points"));
        for (std::size_t size = 0; size < text.size(); size += 7) {
            const bool good = read(stl ? read_stl_text : read_vol_text, text.substr(0, size)).good;
            EXPECT_FALSE(good && size + 60 < data_end) << "cut at " << size;
        }
    }
}

TEST(Imports, StopOnRequestAndSayWhenMemoryIsShort) {
    const std::string ascii = "solid a " + facet + facet + "endsolid a",
                      binary = binary_stl(read(read_stl_text, ascii).mesh);
    for (const auto& [reader, text] : {std::pair<Reader*, std::string>(read_vol_text, small_vol),
                                       {read_stl_text, ascii},
                                       {read_stl_text, binary}}) {
        const StopsAtLook counting;
        PartMesh mesh;
        Remarks none;
        ASSERT_TRUE(reader(text, "f", 1, mesh, none, counting));
        ASSERT_GT(counting.looks, 1);
        for (std::int64_t look = 1; look <= counting.looks; ++look)
            for (const bool no_memory : {false, true}) {
                PartMesh left;
                Remarks remarks;
                EXPECT_FALSE(reader(text, "f", 1, left, remarks, StopsAtLook(look, no_memory))) << look;
                EXPECT_EQ(joined(remarks.errors), no_memory ? "file f: not enough memory to read it\n" : "");
                EXPECT_TRUE(left.coordinates.empty() && left.connectivity.empty() && left.groups.empty());
            }
    }
}

TEST(Imports, CoordinatesThatPassTheRangeOfNumbersAreRefused) {
    const std::string ascii = "solid a " + facet + "endsolid a";
    EXPECT_TRUE(contains(read(read_vol_text, replaced(small_vol, "7 7 7", "7 1e306 7"), 1000).error(),
                         "\"1e306\": a coordinate expected"));
    EXPECT_TRUE(contains(read(read_stl_text, replaced(ascii, "vertex 2000", "vertex -1e306"), 1000).error(),
                         "\"-1e306\": a coordinate expected"));
}

// Files whose records are as short as can be.
TEST(Imports, MemoryIsAMultipleOfTheFile) {
    const auto repeated = [](const char* text, int count, bool number = false) {
        std::string all;
        for (int k = 0; k < count; ++k) all += (number ? std::to_string(k + 10) : "") + text;
        return all;
    };
    const std::string nodes = "*NODE\n1,0,0,0\n2,1,0,0\n3,0,1,0\n4,0,0,1\n*ELEMENT,TYPE=C3D4\n1,1,2,3,4\n";
    for (const std::string& deck :
         {nodes + "*NODE\n" + repeated(",,,\n", 20000, true),
          nodes + "*NSET,NSET=A\n" + repeated("1,3\n", 20000),
          nodes + "*ELEMENT,TYPE=MASS,ELSET=A\n" + repeated(",1\n", 20000, true),
          nodes + "*NSET,NSET=A,GENERATE\n" + repeated("1,4\n", 20000),
          nodes + "*ELSET,ELSET=A\n1\n" + repeated("*NSET,NSET=B,ELSET=A\n", 2000),
          nodes + "*NSET,NSET=A\n1,2\n" + repeated("A\n", 60),  // each time twice as much
          nodes + repeated("*STEP\n", 20000)})
        EXPECT_TRUE(read(read_inp, deck).good) << deck.substr(0, 200);
    const std::string surfaces = "surfaceelementsgi\n20000\n" + repeated("1 1 0 0 3 1 2 3 0 0 0\n", 20000),
                      names = "materials\n20000\n" + repeated(" a\n", 20000, true);
    EXPECT_TRUE(read(read_vol_text, replaced(small_vol, "endmesh", names + "endmesh")).good);
    EXPECT_TRUE(read(read_vol_text, replaced(small_vol, "volumeelements", surfaces + "volumeelements")).good);
}

TEST(Imports, DamagedFilesGiveAnErrorOrASoundMesh) {
    const std::string named = "materials 2 1 steel bar 3 b bcnames 2 1 left side 2 default endmesh",
                      ascii = "solid a " + facet + facet + "endsolid a";
    damage(read_vol_text, replaced(small_vol, "endmesh", named), 10000);
    damage(read_vol_text, read_file(folder + "cube_csg_o2.vol"), 1000);
    damage(read_stl_text, ascii, 10000);
    damage(read_stl_text, binary_stl(read(read_stl_text, ascii).mesh), 10000);
}

}  // namespace
