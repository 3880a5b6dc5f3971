// CAD files through the mesher: what comes out against what is known of the bodies, what is kept, what is
// refused.
#include "mesh/cad_import.h"

#include <numbers>
#include <set>

#include "group_checks.h"
#include "mesh/stl_import.h"
#include "mesh/straighten.h"

using namespace kestralum;
using namespace kestralum::testing;
using std::numbers::pi;

namespace {

#if defined(KESTRALUM_GMSH) && defined(KESTRALUM_MESHER)

// A folder with a CAD file that the program gmsh wrote, and the parts made of it.
class CadImport : public ::testing::Test {
protected:
    void make(const std::string& script, const std::string& name = "part.step") {
        folder.write("part.geo", "SetFactory(\"OpenCASCADE\");\n" + script);
        const std::string command = "cd " + folder.path().string() + " && " KESTRALUM_GMSH " part.geo " +
                                    (name.ends_with("stl") ? "-2 -clmax 0.3" : "-0") + " -o " + name +
                                    " > out.txt 2>&1";
        ASSERT_EQ(std::system(command.c_str()), 0) << read_file(folder.path() / "out.txt");
        file = name;
    }
    void make_plate() {
        make(
            "Box(1) = {0, 0, 0, 4, 3, 1}; Cylinder(2) = {2, 1.5, -1, 0, 0, 3, 0.5};\n"
            "BooleanDifference(3) = { Volume{1}; Delete; }{ Volume{2}; Delete; };\n");
    }
    void make_two() { make("Box(1) = {0, 0, 0, 4, 3, 1}; Box(2) = {1, 1, 1, 2, 1, 1};\n"); }
    // Reads anew; the errors, a line each.
    std::string read(const Progress* stop = nullptr) {
        part.name = "p";
        part.type = file.ends_with("stl") ? Shape::stl : Shape::step;
        part.type_name = "STEP";
        part.parent_name = part.size_text[0] = file;
        part.unit_factor = 1e-3;
        remarks = {};
        mesh = {};
        Collected said;
        if (stop) said.cancel();
        const std::string model = model_folder.empty() ? folder.file("m.txt") : model_folder + "/m.txt";
        MeshContext context{model, memory_budget(), remarks, said};
        good = mesh_part(part, context, mesh);
        EXPECT_EQ(good, remarks.errors.empty() && !stop);
        std::string text;
        for (const std::string& error : remarks.errors) text += error + "\n";
        return text;
    }
    void read_good() {
        ASSERT_EQ(read(), "");
        ASSERT_TRUE(good);
    }
    std::string notices() const {
        std::string text;
        for (const std::string& notice : remarks.notices) text += notice + "\n";
        return text;
    }
    TempFolder folder;
    std::string file, model_folder;
    Part part;
    PartMesh mesh;
    Remarks remarks;
    bool good = false;
};

TEST_F(CadImport, PlateHasItsVolumeAndTheAreasOfItsFaces) {
    make_plate();
    for (const int order : {1, 2}) {
        part.mesh_options = {.size = 0.4, .order = order, .curvature = 24};
        read_good();
        EXPECT_EQ(mesh.kind, order == 1 ? ElementKind::tetrahedron4 : ElementKind::tetrahedron10);
        EXPECT_EQ(group(mesh, "body_1").elements.size(), std::size_t(mesh.element_num()));
        Vec3 sum{};
        double flat = 0;
        int flats = 0;
        for (const PartGroup& g : mesh.groups) {
            if (g.faces.empty()) continue;
            const Vec3 area = area_of(mesh, g.name);
            sum = plus(sum, area);
            if (norm(area) < 1e-9) continue;  // the hole, all round
            ++flats;
            flat += norm(area);
        }
        EXPECT_EQ(flats, 6);
        EXPECT_LT(norm(sum), 1e-15);
        // the rims have 24 corners, and with mid-side nodes on the circle twice as many
        const auto polygon = [](int corners) { return 0.25 / 2 * corners * std::sin(2 * pi / corners); };
        EXPECT_NEAR(flat * 1e6, 2 * (4 + 3) + 2 * (12 - polygon(24 * order)), 1e-9);
        // of the corners alone; between the rims they stand anywhere on the cylinder
        EXPECT_GT(volume_of(mesh) * 1e9, 12 - pi / 4);
        EXPECT_LT(volume_of(mesh) * 1e9, 12 - polygon(24));
    }
}

TEST_F(CadImport, KeepsTheMeshUntilFileOrOptionsChange) {
    make_plate();
    part.mesh_options.size = 0.8;
    const std::string kept = kept_mesh_name(part, "x/m.txt");
    EXPECT_EQ(kept, "x/m__cad.msh");
    read_good();
    EXPECT_TRUE(contains(mesh.lines, "mesh kept:"));
    const std::vector<double> first = mesh.coordinates;
    read_good();
    EXPECT_TRUE(contains(mesh.lines, "kept mesh:"));
    EXPECT_EQ(mesh.coordinates, first);
    part.mesh_options.size = 0.7;
    read_good();
    EXPECT_TRUE(contains(mesh.lines, "mesh kept:"));
    EXPECT_NE(mesh.coordinates, first);
    part.mesh_options.size = 0.8;
    read_good();
    EXPECT_EQ(mesh.coordinates, first) << "the same digits each time";
    const std::string text = read_file(folder.path() / file);
    folder.write(file, replaced(text, "ENDSEC;", "ENDSEC; "));
    read_good();
    EXPECT_TRUE(contains(mesh.lines, "mesh kept:"));
    // a folder that takes no file
    model_folder = "/no/such/folder";
    file = folder.file("part.step");
    read_good();
    EXPECT_EQ(mesh.coordinates, first);
    EXPECT_TRUE(contains(notices(), "its mesh cannot be kept as /no/such/folder/m_p_cad.msh"));
    model_folder.clear();
    file = "part.step";
    // half a kept mesh is none
    const std::string whole = read_file(folder.path() / "m_p_cad.msh");
    folder.write("m_p_cad.msh", whole.substr(0, whole.size() / 2));
    read_good();
    EXPECT_EQ(mesh.coordinates, first);
    EXPECT_EQ(read_file(folder.path() / "m_p_cad.msh"), whole);
}

TEST_F(CadImport, ChoosesASizeAndSaysSoEachTime) {
    make_plate();
    part.mesh_options = {};
    for (int turn = 0; turn < 2; ++turn) {
        read_good();
        EXPECT_TRUE(contains(notices(), "part \"p\": size= is not given: 0.2667 is taken")) << notices();
        EXPECT_NEAR(volume_of(mesh) * 1e9, 12 - pi / 4, 0.04);  // 12 corners a turn cut out 0.75
    }
}

TEST_F(CadImport, FragmentJoinsBodiesThatTouch) {
    make_two();
    part.mesh_options = {.size = 0.6, .order = 1};
    std::map<bool, std::size_t> common;
    for (const bool fragment : {false, true}) {
        part.mesh_options.fragment = fragment;
        read_good();
        EXPECT_EQ(contains(notices(), "fragment=on joins"), !fragment);
        const auto &a = group(mesh, "body_1").nodes, &b = group(mesh, "body_2").nodes;
        std::vector<std::int32_t> both;
        std::ranges::set_intersection(a, b, std::back_inserter(both));
        common[fragment] = both.size();
        for (const std::int32_t n : both) EXPECT_NEAR(mesh.coordinates[3 * n - 1], 1e-3, 1e-12);
        EXPECT_NEAR(volume_of(mesh) * 1e9, 12 + 2, 1e-9);
    }
    EXPECT_EQ(common[false], 0u);
    EXPECT_GT(common[true], 10u);
}

// Shortest edge in a group's faces.
double shortest_edge(const PartMesh& mesh, const std::string& name) {
    double shortest = 1e300;
    for (const ElementFace& face : group(mesh, name).faces) {
        const auto corner = face_corners(mesh.kind, face.face);
        const auto at = [&](std::size_t k) {
            return triple(
                mesh.coordinates,
                node_index(mesh.connectivity[nodes_per_element(mesh.kind) * face.element + corner[k % 3]]));
        };
        for (std::size_t k = 0; k < 3; ++k) shortest = std::min(shortest, norm(minus(at(k + 1), at(k))));
    }
    return shortest;
}

TEST_F(CadImport, SewsFacesThatCloseABody) {
    make("Box(1) = {0, 0, 0, 4, 3, 1}; Delete { Volume{1}; }\n");
    part.mesh_options = {.size = 1};
    read_good();
    EXPECT_TRUE(contains(notices(), "its faces are sewn together into bodies"));
    EXPECT_NEAR(volume_of(mesh) * 1e9, 12, 1e-9);
    EXPECT_EQ(mesh.groups.size(), 7u);
}

TEST_F(CadImport, RefinesNearTheFacesAskedFor) {
    make_plate();
    part.mesh_options = {.size = 1, .order = 1, .refinements = {{"face_1,face_7", 0.1}}};
    read_good();
    EXPECT_LT(shortest_edge(mesh, "face_7"), 0.12e-3);
    EXPECT_LT(shortest_edge(mesh, "face_1"), 0.12e-3);
    EXPECT_GT(shortest_edge(mesh, "face_6"), 0.4e-3);  // opposite
    EXPECT_GT(group(mesh, "face_1").faces.size(), 2 * 3 * 1 / (0.1 * 0.1) * 0.7);
}

TEST_F(CadImport, TakesTheNamesThatTheFileHas) {
    make_two();
    const std::string text = read_file(folder.path() / file);
    std::string named;
    int bodies = 0, faces = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view rest = std::string_view(text).substr(at);
        const std::string_view body = "MANIFOLD_SOLID_BREP('", face = "ADVANCED_FACE('";
        named += rest[0];
        ++at;
        if (rest.starts_with(body))
            named += std::string(body.substr(1)) + (bodies++ ? "lid" : "lower half"), at += body.size() - 1;
        if (!rest.starts_with(face)) continue;
        named += std::string(face.substr(1)), at += face.size() - 1;
        if (faces++ % 12 < 2) named += faces % 2 ? "clamp; (it''s)" : "\\X2\\00D6\\X0\\l";
    }
    ASSERT_EQ(bodies, 2);
    folder.write(file, named);
    for (const bool fragment : {false, true}) {
        part.mesh_options = {.size = 1, .order = 1, .fragment = fragment};
        read_good();
        EXPECT_EQ(group(mesh, "lower_half").faces.size(), 0u);
        EXPECT_GT(group(mesh, "lower_half").elements.size(), group(mesh, "lid").elements.size());
        EXPECT_NEAR(norm(area_of(mesh, "clamp;_(it's)")) * 1e6, 3, 1e-9);
        EXPECT_NEAR(norm(area_of(mesh, "Öl")) * 1e6, 3, 1e-9);
    }
}

TEST_F(CadImport, AClosedSurfaceOfFacetsBecomesABody) {
    make(
        "Box(1) = {0, 0, 0, 4, 3, 1}; Cylinder(2) = {2, 1.5, -1, 0, 0, 3, 0.5};\n"
        "BooleanDifference(3) = { Volume{1}; Delete; }{ Volume{2}; Delete; };\n"
        "Mesh.MeshSizeFromCurvature = 24;\n",
        "part.stl");
    part.mesh_options = {.size = 0.5};
    read_good();
    EXPECT_FALSE(mesh.surface);
    EXPECT_GT(volume_of(mesh) * 1e9, 12 - pi / 4);
    EXPECT_LT(volume_of(mesh) * 1e9, 12 - 6 * std::sin(pi / 3) / 8);  // edges of 0.5 round a radius of 0.5
    EXPECT_GE(mesh.groups.size(), 8u);
    const std::string text = read_file(folder.path() / file);
    const std::size_t last = text.rfind("facet normal");
    folder.write(file, text.substr(0, last) + "endsolid\n");
    EXPECT_TRUE(contains(read(), "part.stl\": its surface is not closed")) << remarks.errors.at(0);
    part.mesh_options = {};
    read_good();
    EXPECT_TRUE(mesh.surface);
}

TEST_F(CadImport, RefusesWithOneLine) {
    make_plate();
    const auto refused = [&](const std::string& expected) {
        const std::string errors = read();
        EXPECT_EQ(std::ranges::count(errors, '\n'), 1) << errors;
        EXPECT_TRUE(errors.starts_with("part \"p\": file \"")) << errors;
        EXPECT_TRUE(contains(errors, expected)) << errors;
        EXPECT_EQ(mesh.node_num(), 0);
    };
    part.mesh_options = {.size = 1, .refinements = {{"face_99", 0.1}}};
    refused("refine=face_99: it has no body or face of this name");
    part.mesh_options = {.size = 1e-5};
    refused("size=1e-05 would give about");
    part.mesh_options = {.size = 1};
    make("Rectangle(1) = {0, 0, 0, 4, 3};\n");
    refused("it has no solid body, and its faces do not close one");
    make_plate();
    const std::string text = read_file(folder.path() / file);
    for (const double share : {0.0, 0.01, 0.2, 0.5, 0.8}) {
        folder.write(file,
                     text.substr(0, static_cast<std::size_t>(share * static_cast<double>(text.size()))));
        read();
        EXPECT_FALSE(good) << share;
    }
    folder.write("a.step", "no step");
    file = "a.step";
    refused("no shape can be read from it");
    folder.write("a.txt", text);
    file = "a.txt";
    refused(".step, .stp, .iges, .igs or .brep expected");
    file = "none.step";
    refused("cannot be read");
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_NE(entry.path().extension(), ".msh") << "left behind: " << entry.path();
    make_plate();
    const SilentProgress stop;
    EXPECT_EQ(read(&stop), "");
    EXPECT_FALSE(good);
}

#endif

// One element on a sphere whose mid-side nodes bulge more and more.
TEST(Straighten, LeavesWhatIsSoundAndMendsTheRest) {
    for (const double bulge : {0.0, 0.1, 0.24, 0.26, 0.5, 3.0}) {
        PartMesh mesh;
        mesh.kind = ElementKind::tetrahedron10;
        mesh.coordinates = {0,   0,   0, 1, 0,   0, 0, 1, 0,   0,   0, 1,   0.5, 0,   0,
                            0.5, 0.5, 0, 0, 0.5, 0, 0, 0, 0.5, 0.5, 0, 0.5, 0,   0.5, 0.5};
        for (std::int32_t n = 1; n <= 10; ++n) mesh.connectivity.push_back(n);
        mesh.coordinates[3 * 4] += bulge;  // along its edge: the determinant there is 1 - 4 bulge
        const std::vector<double> before = mesh.coordinates;
        EXPECT_EQ(straighten_folded(mesh, SilentProgress()), bulge > 0.23 ? 1 : 0);
        const double left = mesh.coordinates[3 * 4] - 0.5;
        EXPECT_GE(1 - 4 * left, 0.1 - 1e-12);
        EXPECT_LE(left, bulge);
        EXPECT_GE(left, std::min(bulge, 0.75 * 0.225) - 1e-12) << "no further than needed";
        EXPECT_TRUE(bulge > 0.23 || mesh.coordinates == before);
    }
}

}  // namespace
