// What mesh generators write of bodies that are known exactly, in every format that is read.
#include <map>
#include <numbers>
#include <numeric>

#include "body_moments.h"
#include "model/face_points.h"
#include "model/format.h"
#include "tool_runs.h"

using namespace kestralum;
using namespace kestralum::testing;
using std::numbers::pi;

namespace {

// ---- an L-shaped prism under a slanted plane, turned: flat faces only

struct Plane {
    const char* name;
    Vec3 point, normal;  // outwards
};
const Plane planes[] = {{"bottom", {0, 0, 0}, {0, 0, -1}}, {"left", {0, 0, 0}, {-1, 0, 0}},
                        {"front", {0, 0, 0}, {0, -1, 0}},  {"right", {2, 0, 0}, {1, 0, 0}},
                        {"back", {0, 2, 0}, {0, 1, 0}},    {"top", {0, 0, 1}, {-0.25, -0.5, 1}},
                        {"notch_x", {1, 1, 0}, {1, 0, 0}}, {"notch_y", {1, 1, 0}, {0, 1, 0}}};
const double footprint[8][2] = {{0, 0}, {1, 0}, {2, 0}, {2, 1}, {1, 1}, {1, 2}, {0, 2}, {0, 1}};
constexpr double longest_rim = 12, furthest = 3;  // about a face, from the centre: bounds

// Corner k of the bottom, k + 8 above it.
Vec3 upright(int corner) {
    const double x = footprint[corner % 8][0], y = footprint[corner % 8][1];
    return {x, y, corner < 8 ? 0 : 1 + x / 4 + y / 2};
}
Vec3 placed(const Vec3& x) {
    return turned({2 / 3.0, -1 / 3.0, 2 / 3.0, 2 / 3.0, 2 / 3.0, -1 / 3.0, -1 / 3.0, 2 / 3.0, 2 / 3.0}, x);
}

// The prism over a loop of the footprint: its faces as loops of corners.
using Loops = std::vector<std::vector<int>>;
Loops prism(const std::vector<int>& base) {
    Loops faces{base, base};
    for (int& corner : faces[1]) corner += 8;
    for (std::size_t k = 0; k < base.size(); ++k) {
        const int a = base[k], b = base[(k + 1) % base.size()];
        faces.push_back({a, b, b + 8, a + 8});
    }
    return faces;
}
const std::vector<int> blocks[] = {{0, 1, 4, 7}, {1, 2, 3, 4}, {7, 4, 5, 6}};

struct Exact {
    Moments body;
    std::map<std::string, Vec3> area;  // of each plane's face, outwards
};
Exact exact_body() {
    Exact exact;
    for (const auto& base : blocks)
        for (const auto& [b, c] : {std::pair(1, 2), std::pair(2, 3)}) {  // two wedges of three tetrahedra
            const auto at = [&](int k, int up) { return placed(upright(base[std::size_t(k)] + up)); };
            add_straight({at(0, 0), at(b, 0), at(c, 0), at(0, 8)}, exact.body);
            add_straight({at(b, 0), at(c, 0), at(0, 8), at(b, 8)}, exact.body);
            add_straight({at(c, 0), at(0, 8), at(b, 8), at(c, 8)}, exact.body);
        }
    for (const auto& face : prism({0, 1, 2, 3, 4, 5, 6, 7}))
        for (const Plane& plane : planes) {
            Vec3 area{};
            double off = 0;
            for (std::size_t k = 0; k < face.size(); ++k) {
                const Vec3 a = upright(face[k]), b = upright(face[(k + 1) % face.size()]);
                off += std::abs(dot(plane.normal, minus(a, plane.point)));
                area = plus(area, times(0.5, cross(a, b)));
            }
            if (off > 0) continue;
            if (dot(area, plane.normal) < 0) area = times(-1, area);
            Vec3& sum = exact.area.try_emplace(plane.name, Vec3{}).first->second;
            sum = plus(sum, placed(area));
        }
    return exact;
}

// Gmsh's script of cells with common edges and faces; the outer faces are groups by their planes.
std::string gmsh_cells(const std::vector<Loops>& cells) {
    std::string script = "SetFactory(\"OpenCASCADE\");\n", loops, surfaces, solids;
    for (int k = 0; k < 16; ++k) {
        const Vec3 x = placed(upright(k));
        script += formatted("Point(%d) = {%.17g, %.17g, %.17g};\n", k + 1, x[0], x[1], x[2]);
    }
    std::map<std::pair<int, int>, int> lines;
    std::map<std::vector<int>, int> faces, uses;  // by their corners, sorted
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        std::string shell;
        for (const auto& face : cells[cell]) {
            std::vector<int> key = face;
            std::ranges::sort(key);
            ++uses[key];
            const auto [place, added] = faces.try_emplace(key, int(faces.size()) + 1);
            shell += (shell.empty() ? "" : ", ") + std::to_string(place->second);
            if (!added) continue;
            std::string loop;
            for (std::size_t k = 0; k < face.size(); ++k) {
                const int a = face[k], b = face[(k + 1) % face.size()];
                const auto [line, fresh] = lines.try_emplace(std::minmax(a, b), int(lines.size()) + 1);
                if (fresh)
                    script += formatted("Line(%d) = {%d, %d};\n", line->second, line->first.first + 1,
                                        line->first.second + 1);
                loop += (k == 0 ? "" : ", ") + std::to_string(a < b ? line->second : -line->second);
            }
            loops += formatted("Curve Loop(%d) = {%s};\n", place->second, loop.c_str());
            surfaces += formatted("Plane Surface(%d) = {%d};\n", place->second, place->second);
        }
        solids += formatted("Surface Loop(%zu) = {%s};\nVolume(%zu) = {%zu};\n", cell + 1, shell.c_str(),
                            cell + 1, cell + 1);
    }
    script += loops + surfaces + solids + "Physical Volume(\"ell\") = {Volume{:}};\n";
    for (const Plane& plane : planes) {
        std::string of, places, areas;
        for (const auto& [corners, number] : faces) {
            const bool inside = uses[corners] == 2;
            if (inside || !std::ranges::all_of(corners, [&](int k) {
                    return dot(plane.normal, minus(upright(k), plane.point)) == 0;
                }))
                continue;
            of += (of.empty() ? "" : ", ") + std::to_string(number);
            places += " %.17g";
            areas += formatted(", Mass Surface{%d}", number);
        }
        script += formatted("Physical Surface(\"%s\") = {%s};\nPrintf(\"area %s%s\"%s);\n", plane.name,
                            of.c_str(), plane.name, places.c_str(), areas.c_str());
    }
    return script;
}

// The numbers behind a word that begins a line of the program's output.
std::vector<double> figures(const std::string& output, const std::string& word) {
    std::vector<double> numbers;
    for (const std::string& line : lines_of(output))
        if (line.starts_with(word + " "))
            for (const std::string& token : tokens_of(line.substr(word.size())))
                numbers.push_back(std::strtod(token.c_str(), nullptr));
    return numbers;
}

// Where each coordinate is off by up to `digits`: a place of the surface moves by up to three times that, the
// quadratic interpolation's 5/3 among it, and the body changes by no more than the layer between.
void expect_exact(const Reading& reading, const Exact& exact, double digits, bool has_faces = true) {
    ASSERT_TRUE(reading.good) << reading.error();
    const Moments body = moments_of(reading.mesh);
    const double moved = 3 * digits, volume = exact.body.volume;
    double surface = 0;
    for (const auto& [name, area] : exact.area) surface += norm(area);
    const double layer = moved * surface;
    EXPECT_NEAR(body.volume, volume, layer + 1e-12 * volume);
    EXPECT_LT(norm(minus(body.centre(), exact.body.centre())), layer * furthest / volume + 1e-12);
    const auto inertia = body.inertia(), expected = exact.body.inertia();
    for (std::size_t k = 0; k < 6; ++k)
        EXPECT_NEAR(inertia[k], expected[k], layer * furthest * furthest + 1e-12 * expected[0]) << k;
    const Mesh mesh = mesh_of(reading.mesh);
    const bool named = std::ranges::any_of(reading.mesh.groups,
                                           [&](const PartGroup& of) { return exact.area.contains(of.name); });
    std::map<std::string, int> found;  // files without names have the faces under numbers
    for (const PartGroup& of : reading.mesh.groups)
        for (const auto& [name, area] : exact.area) {
            if (of.faces.empty() || (named && of.name != name)) continue;
            if (!(norm(minus(area_of(reading.mesh, of.name), area)) < moved * longest_rim + 1e-12)) continue;
            ++found[name];
            double sum = 0;
            for (const ElementFace& face : of.faces) sum += face_area(mesh, face);
            EXPECT_NEAR(sum, norm(area), moved * longest_rim + 1e-12 * sum) << name;
        }
    for (const auto& [name, area] : exact.area) EXPECT_EQ(found[name], has_faces) << name;
}

TEST(ToolFiles, GmshBodyWithFlatFacesIsExactInEveryFormat) {
    NEEDS_GMSH;
    const Exact exact = exact_body();
    const std::string groups = "Mesh.SaveGroupsOfNodes = 1;\n";
    const GmshRun tetra(gmsh_cells({prism({0, 1, 2, 3, 4, 5, 6, 7})}) + groups +
                        "Printf(\"volume %.17g\", Mass Volume{1});\nc() = CenterOfMass Volume{1};\n"
                        "Printf(\"centre %.17g %.17g %.17g\", c(0), c(1), c(2));\nI() = MatrixOfInertia "
                        "Volume{1};\n"
                        "Printf(\"inertia %.17g %.17g %.17g %.17g %.17g %.17g\", I(0), I(4), I(8), I(1), "
                        "I(2), I(5));\n"
                        "Mesh.MeshSizeMax = 0.6; Mesh 3;\n" +
                        save_all("o1_") + "SetOrder 2;\n" + save_all("o2_"));
    const GmshRun hexa(gmsh_cells({prism(blocks[0]), prism(blocks[1]), prism(blocks[2])}) + groups +
                       "Transfinite Curve{:} = 4; Transfinite Surface{:}; Recombine Surface{:}; Transfinite "
                       "Volume{:};\nMesh 3;\n" +
                       save_all("hexa"));
    ASSERT_TRUE(tetra.good && hexa.good) << tetra.output() << hexa.output();

    // the program's own figures
    const std::string output = tetra.output();
    EXPECT_NEAR(figures(output, "volume").at(0), exact.body.volume, 1e-12 * exact.body.volume);
    for (std::size_t k = 0; k < 3; ++k)
        EXPECT_NEAR(figures(output, "centre").at(k), exact.body.centre()[k], 1e-12);
    for (std::size_t k = 0; k < 6; ++k)
        EXPECT_NEAR(figures(output, "inertia").at(k), exact.body.inertia()[k], 1e-12) << k;
    for (const auto& [name, area] : exact.area) {
        const std::vector<double> faces = figures(output, "area " + name);
        EXPECT_NEAR(std::accumulate(faces.begin(), faces.end(), 0.0), norm(area), 1e-12) << name;
    }

    for (const std::string file : gmsh_files)
        for (const std::string order : {"o1_", "o2_", "hexa"}) {
            SCOPED_TRACE(order + file);
            const Reading reading = (order == "hexa" ? hexa : tetra).mesh(order + file);
            expect_exact(reading, exact, 1e-14);  // text of 14 to 16 digits
            EXPECT_EQ(reading.mesh.kind, order == "o1_"   ? ElementKind::tetrahedron4
                                         : order == "o2_" ? ElementKind::tetrahedron10
                                                          : ElementKind::hexahedron);
            EXPECT_EQ(std::int64_t(group(reading.mesh, "ell").elements.size()), reading.mesh.element_num());
            EXPECT_FALSE(contains(reading.mesh.lines, "group:left_2")) << "the node set of the same name";
        }
}

TEST(ToolFiles, NetgenBodyWithFlatFacesIsExactToTheDigitsOfEachFormat) {
    NEEDS_NETGEN;
    std::string script = "from netgen.csg import *\nf = []\n";
    for (const Plane& plane : planes) {
        const Vec3 p = placed(plane.point), n = placed(plane.normal);
        script += formatted("f.append(Plane(Pnt(%.17g, %.17g, %.17g), Vec(%.17g, %.17g, %.17g)).bc('%s'))\n",
                            p[0], p[1], p[2], n[0], n[1], n[2], plane.name);
    }
    const NetgenRun netgen(script +
                           "g = CSGeometry()\n"
                           "g.Add((f[0]*f[1]*f[2]*f[3]*f[4]*f[5]*(f[6] + f[7])).mat('ell'))\n"
                           "m = g.GenerateMesh(maxh = 0.6)\n"
                           "for o in '12':\n"
                           "    m.Save('o' + o + '.vol')\n"
                           "    m.Export('o' + o + '.inp', 'Abaqus Format')\n"
                           "    m.Export('o' + o + '.msh', 'Gmsh2 Format')\n"
                           "    if o == '1': m.SecondOrder()\n");
    ASSERT_TRUE(netgen.good) << netgen.output();
    const Exact exact = exact_body();
    struct Format {
        const char* ending;
        double digits;  // half of the last place that is written
        bool has_faces;
    };
    // .vol has 16 places behind the point, .inp eight digits of numbers below 10, .msh six places
    for (const Format& format :
         {Format{".vol", 0.5e-15, true}, {".inp", 0.5e-7, false}, {".msh", 0.5e-6, true}})
        for (const std::string order : {"o1", "o2"}) {
            SCOPED_TRACE(order + format.ending);
            const Reading reading = netgen.mesh(order + format.ending);
            expect_exact(reading, exact, format.digits, format.has_faces);
            EXPECT_EQ(reading.mesh.kind,
                      order == "o1" ? ElementKind::tetrahedron4 : ElementKind::tetrahedron10);
        }
}

// ---- a plate with a round hole

constexpr double side = 2, thickness = 0.1, radius = 0.5;

// Fine enough round the hole that the quadratic interpolation, whose circle is off by a few times the fourth
// power of the angle of an edge over a thousand, has its area and the volume to 1e-6.
void expect_plate(const Reading& reading, const char* hole) {
    ASSERT_TRUE(reading.good) << reading.error();
    ASSERT_EQ(reading.mesh.kind, ElementKind::tetrahedron10);
    const double volume = (side * side - pi * radius * radius) * thickness,
                 area = 2 * pi * radius * thickness;
    EXPECT_NEAR(moments_of(reading.mesh).volume, volume, 1e-6 * volume);
    if (!hole) return;
    const Mesh mesh = mesh_of(reading.mesh);
    double sum = 0;
    for (const ElementFace& face : group(reading.mesh, hole).faces) sum += face_area(mesh, face);
    EXPECT_NEAR(sum, area, 1e-6 * area);
    EXPECT_LT(norm(area_of(reading.mesh, hole)), 1e-6 * area) << "closed around the axis";
    for (const std::int32_t n : group(reading.mesh, hole).nodes) {  // mid-side nodes too
        const Vec3 x = triple(reading.mesh.coordinates, n - 1);
        EXPECT_NEAR(std::hypot(x[0] - side / 2, x[1] - side / 2), radius, 1e-6);
    }
}

TEST(ToolFiles, PlateWithAHoleHasItsVolumeAndTheHolesArea) {
    NEEDS_GMSH;
    const GmshRun gmsh(
        formatted("SetFactory(\"OpenCASCADE\"); Box(1) = {0, 0, 0, %g, %g, %g}; Cylinder(2) = {%g, %g, -1, "
                  "0, 0, 4, %g};\n",
                  side, side, thickness, side / 2, side / 2, radius) +
        "BooleanDifference(3) = { Volume{1}; Delete; }{ Volume{2}; Delete; };\n"
        "hole() = Surface In BoundingBox{0.4, 0.4, -0.1, 1.6, 1.6, 0.2};\n"
        "Physical Volume(\"plate\") = {3}; Physical Surface(\"hole\") = {hole()};\n"
        "Mesh.MeshSizeFromCurvature = 60; Mesh.MeshSizeMax = 0.4; Mesh.ElementOrder = 2; Mesh 3;\n" +
        save_all("plate"));
    ASSERT_TRUE(gmsh.good) << gmsh.output();
    for (const std::string file : gmsh_files) {
        SCOPED_TRACE(file);
        expect_plate(gmsh.mesh("plate" + file), "hole");
    }
}

TEST(ToolFiles, NetgenPlateWithAHoleHasItsVolumeAndTheHolesArea) {
    NEEDS_NETGEN;
    const NetgenRun netgen(
        formatted("from netgen.csg import *\ng = CSGeometry()\n"
                  "hole = Cylinder(Pnt(%g, %g, -1), Pnt(%g, %g, 4), %g).bc('hole').maxh(0.04)\n"
                  "g.Add(OrthoBrick(Pnt(0, 0, 0), Pnt(%g, %g, %g)).bc('wall') - hole)\n",
                  side / 2, side / 2, side / 2, side / 2, radius, side, side, thickness) +
        "m = g.GenerateMesh(maxh = 0.4)\nm.SecondOrder()\nm.Save('plate.vol')\n"
        "m.Export('plate.inp', 'Abaqus Format')\nm.Export('plate.msh', 'Gmsh2 Format')\n");
    ASSERT_TRUE(netgen.good) << netgen.output();
    expect_plate(netgen.mesh("plate.vol"), "hole");
    expect_plate(netgen.mesh("plate.inp"), nullptr);
    expect_plate(netgen.mesh("plate.msh"), "physical_2_7");
}

}  // namespace
