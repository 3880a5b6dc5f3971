#include <numbers>

#include "mesh_checks.h"

using namespace kestralum;
using namespace kestralum::testing;
using std::numbers::pi;

namespace {

using Connectivity = std::vector<std::int32_t>;

TEST(Box, NumbersNodesAlongXThenYThenZ) {
    EXPECT_EQ(mesh_of({make_part("RECT", {1, 2, 3}, {1, 1, 1})}).connectivity,
              (Connectivity{5, 1, 3, 7, 6, 2, 4, 8}));
    const Mesh two = mesh_of({make_part("RECT", {2, 1, 1}, {2, 1, 1})});
    EXPECT_EQ(Connectivity(two.connectivity.begin() + 8, two.connectivity.end()),
              (Connectivity{8, 2, 5, 11, 9, 3, 6, 12}));
    EXPECT_EQ(point(two, 9), (Vec3{2, 0, 1}));
}

TEST(Box, LastLinesTakeTheSizesThemselves) {
    // a size for which div·(size/div) misses the size by a rounding error for some divisions
    for (int n = 1; n < 60; ++n) {
        const double size = 0.1;
        const Mesh mesh = mesh_of({make_part("RECT", {size, size, size}, {n, 1, 1})});
        EXPECT_EQ(mesh.size_info[3], size) << n;
        EXPECT_EQ(mesh_of({make_part("HOLLOWRECT", {size, size, 0.01, size}, {n + 2, 3, 1, n})}).size_info,
                  (std::array<double, 6>{-size / 2, -size / 2, 0, size / 2, size / 2, size}));
    }
}

TEST(HollowBox, WritesRingsInwardsWithTheFourSigns) {
    const Mesh mesh = mesh_of({make_part("HOLLOWRECT", {8, 8, 1, 5}, {4, 4, 1, 1})});
    ASSERT_EQ(mesh.node_num(), 48);
    // the outer ring from (4, 0) up to the corner and back to (0, 4), then the ring at wall depth
    std::int32_t n = 0;
    for (const auto& [x, y] :
         std::vector<std::array<double, 2>>{{4, 0}, {4, 3}, {4, 4}, {3, 4}, {0, 4}, {3, 0}, {3, 3}, {0, 3}}) {
        std::vector<Vec3> images;
        for (const Vec3& image : {Vec3{x, y, 0}, Vec3{-x, y, 0}, Vec3{-x, -y, 0}, Vec3{x, -y, 0}})
            if (std::find(images.begin(), images.end(), image) == images.end()) images.push_back(image);
        for (const Vec3& image : images) EXPECT_EQ(point(mesh, ++n), image);
    }
    EXPECT_EQ(n, 24);
}

using Divisions = std::vector<int>;

// One row per shape: sizes, the exact volume, divisions to try.
struct ShapeCase {
    const char* keyword;
    std::vector<double> sizes;
    double volume;
    bool curved;
    std::vector<Divisions> divisions;

    Part part(const Divisions& division) const { return make_part(keyword, sizes, division); }
};

// clang-format off
const std::vector<Divisions>
    of_disc{{1, 1}, {2, 1}, {3, 2}, {4, 1}, {9, 1}, {40, 1}},
    of_grid{{1, 1, 1}, {3, 2, 1}, {2, 5, 3}, {8, 1, 2}, {1, 8, 1}, {7, 7, 2}},
    of_ring{{3, 1, 1}, {4, 2, 1}, {5, 3, 2}, {12, 4, 1}, {37, 1, 2}},
    of_frame{{3, 3, 1, 1}, {4, 4, 1, 2}, {6, 5, 2, 1}, {7, 8, 3, 2}, {5, 12, 2, 1}, {4, 3, 1, 1}};

const ShapeCase cases[] = {
    {"RECT", {2, 3, 4}, 24, false, of_grid},
    {"TRAPEZOID", {2, 1, 1.5, -0.7, 3}, 6.75, false, of_grid},
    {"TRAPEZOID", {1, 4, 2, 3, 1}, 5, false, of_grid},
    {"HOLLOWRECT", {4, 3, 0.5, 2}, (12 - 3 * 2) * 2, false, of_frame},
    {"TRIPOLE", {2, 3, 90, 1.5}, 4.5, false, {{1, 1}, {2, 1}, {3, 2}, {8, 1}}},
    {"TRIPOLE", {2, 1, 150, 1}, 0.5, false, {{1, 1}, {5, 2}}},
    {"CYLI", {2, 3}, 12 * pi, true, of_disc},
    {"HALF_CYLI", {2, 3}, 6 * pi, true, of_disc},
    {"QUART_CYLI", {2, 3}, 3 * pi, true, of_disc},
    {"HOLLOWCYLI", {2, 0.5, 3}, pi * (4 - 2.25) * 3, true, of_ring},
    {"HALF_HOLLOWCYLI", {2, 1.9, 3}, pi / 2 * (4 - 0.01) * 3, true, of_ring},
    {"QUART_HOLLOWCYLI", {2, 0.1, 3}, pi / 4 * (4 - 3.61) * 3, true, of_ring},
    {"ARCH", {1, 2, 3}, (8 - pi / 2) * 3, true, of_grid},
    {"HALF_ARCH", {0.99, 1, 3}, (1 - pi / 4 * 0.9801) * 3, true, of_grid}
};
// clang-format on

TEST(EveryShape, IsOneClosedBodyOfValidHexahedra) {
    for (const ShapeCase& shape : cases)
        for (const Divisions& d : shape.divisions) {
            SCOPED_TRACE(std::string(shape.keyword) + " " + ::testing::PrintToString(d));
            const Mesh mesh = mesh_of({shape.part(d)});
            std::set<std::array<std::int64_t, 3>> places;  // in a millionth of the unit
            for (std::int32_t n = 1; n <= mesh.node_num(); ++n) {
                const Vec3 x = times(1e6, point(mesh, n));
                places.insert({std::llround(x[0]), std::llround(x[1]), std::llround(x[2])});
            }
            EXPECT_EQ(mesh.node_num(), places.size()) << "a seam is not shared";
            EXPECT_EQ(count_bodies(mesh), 1);
            const JacobianCheck jacobian = check_hexahedra(mesh);
            EXPECT_GT(jacobian.smallest, 1e-3 * jacobian.volume / mesh.element_num());
            EXPECT_NEAR(volume_inside_surface(mesh), jacobian.volume, 1e-12 * jacobian.volume);
            if (!shape.curved) {
                EXPECT_NEAR(jacobian.volume, shape.volume, 1e-12 * shape.volume);
            }
        }
}

TEST(EveryShape, VolumeOfACurvedOneConvergesWithTheSquareOfTheStep) {
    for (const ShapeCase& shape : cases) {
        if (!shape.curved) continue;
        double error[2];
        for (int refinement : {0, 1}) {
            Divisions d = shape.divisions[2];
            for (int& division : d) division *= 4 << refinement;
            error[refinement] = std::abs(check_hexahedra(mesh_of({shape.part(d)})).volume - shape.volume);
        }
        EXPECT_NEAR(std::log2(error[0] / error[1]), 2.0, 0.05) << shape.keyword;
    }
}

TEST(Cylinder, CellsStayEvenAndWellShapedHoweverFine) {
    for (int dr = 1; dr <= 40; ++dr) {
        const JacobianCheck check = check_hexahedra(mesh_of({make_part("CYLI", {1, 1}, {dr, 1})}));
        EXPECT_GT(check.smallest_scaled, 0.5) << dr;
        EXPECT_LT(check.largest_element, 1.13 * check.smallest_element) << dr;
    }
}

TEST(Sections, CutPlanesAreExact) {
    // part, smallest x, nodes on the cut y = 0
    const std::tuple<Part, double, int> sections[] = {
        {make_part("HALF_CYLI", {0.7, 1}, {3, 1}), -0.7, 14},
        {make_part("QUART_CYLI", {0.7, 1}, {3, 1}), 0, 8},
        {make_part("HALF_HOLLOWCYLI", {0.7, 0.3, 1}, {6, 3, 1}), -0.7, 16},
        {make_part("QUART_HOLLOWCYLI", {0.7, 0.3, 1}, {6, 3, 1}), 0, 8},
        {make_part("ARCH", {0.3, 0.7, 1}, {3, 5, 1}), -0.7, 16},
        {make_part("HALF_ARCH", {0.3, 0.7, 1}, {3, 5, 1}), 0, 8}};
    for (const auto& [part, left, on_cut] : sections) {
        const Mesh mesh = mesh_of({part});
        EXPECT_EQ(mesh.size_info, (std::array<double, 6>{left, 0, 0, 0.7, 0.7, 1})) << part.name;
        int on_y_cut = 0;
        for (std::int32_t n = 1; n <= mesh.node_num(); ++n) on_y_cut += point(mesh, n)[1] == 0.0;
        EXPECT_EQ(on_y_cut, on_cut) << part.name;
    }
}

TEST(Meshers, PrintTheirHeads) {
    // clang-format off
    const std::pair<Part, const char*> expected[] = {
        {make_part("RECT", {1, 1, 1}, {1, 1, 1}), "RECT:EULER_ANG="},
        {make_part("HOLLOWRECT", {8, 8, 1, 5}, {4, 4, 1, 1}), "HOLLOWRECT:Nelem1=12,Nnode1=48\n"
         "db=4,dh=4,dt=1,dl=1,b=8.000e+00,h=8.000e+00,t=1.000e+00,L=5.000e+00\n"},
        {make_part("TRAPEZOID", {2, 1, 1, 0, 1}, {3, 2, 1}), "TRAPEZOID:Nelem1=6,Nnode1=24\n"
         "db=3,dh=2,dl=1,b1=2.000e+00,b2=1.000e+00,h=1.000e+00,t=0.000e+00,L=1.000e+00\n"},
        {make_part("HALF_CYLI", {2, 1}, {3, 2}),
         "CYLI:dr=3,dl=2,R=2.000000e+00,L=1.000000e+00\n  HALF_CYLI\nNelem1=36,Nnode1=84\n"},
        {make_part("ARCH", {1, 2, 1}, {3, 2, 1}),
         "Nelem1=24,Nnode1=72\ndr=3,dt=2,dl=1,R=1.000e+00,W=2.000e+00,L=1.000e+00\n  ARCH\n"},
        {make_part("QUART_HOLLOWCYLI", {2, 1, 1}, {3, 2, 1}), "HOLLOWCYLI:Nelem1=6,Nnode1=24\n"
         "da=3,dt=2,dl=1,R=2.000e+00,t=1.000e+00,L=1.000e+00\n  QUART_HOLLOWCYLI\n"},
        {make_part("TRIPOLE", {1, 1, 60, 1}, {2, 3}),
         "TRIPOLE:Nelem1=36,Nnode1=76\ndb=2,dl=3,b1=1.000e+00,b2=1.000e+00,ANG=6.000e+01,L=1.000e+00\n"},
        {make_part("SPHERE", {}, {}), "Nelem1=0, Nnode1=0\nSPHERE:dr=0\nR=0.000000e+00\nelement_type=0\n"}
    };
    // clang-format on
    for (const auto& [part, lines] : expected) {
        const Built built = build({part});
        EXPECT_TRUE(built.good && contains(built.lines, lines)) << built.lines;
        EXPECT_EQ(built.remarks.notices.size(), part.type == Shape::sphere ? 1u : 0u);
    }
}

TEST(Meshers, RefuseWhatHasNoGeometry) {
    const std::pair<Part, const char*> bad[] = {
        {make_part("RECT", {1, -2, 1}, {1, 1, 1}), "h = -2"},
        {make_part("RECT", {1, 1, 0}, {1, 1, 1}), "L = 0"},
        {make_part("RECT", {NAN, 1, 1}, {1, 1, 1}), "b = nan"},
        {make_part("HOLLOWRECT", {1, 1, 0.5, 1}, {4, 4, 1, 1}), "t = 5.0"},
        {make_part("HOLLOWRECT", {2, 1, 0.5, 1}, {4, 4, 1, 1}), "height h"},
        {make_part("HOLLOWRECT", {1, 1, 0.1, 1}, {4, 5, 2, 1}), "dt = 2 leaves no opening in db = 4"},
        {make_part("HOLLOWRECT", {1, 1, 0.1, 1}, {5, 4, 2, 1}), "dt = 2 leaves no opening in dh = 4"},
        {make_part("CYLI", {0, 1}, {1, 1}), "R = 0"},
        {make_part("HOLLOWCYLI", {1, 1, 1}, {8, 1, 1}), "t = 1"},
        {make_part("HOLLOWCYLI", {1, 0.5, 1}, {2, 1, 1}), "da = 2"},
        {make_part("HALF_HOLLOWCYLI", {1, 0.5, 1}, {1, 1, 1}), "da = 1"},
        {make_part("ARCH", {1, 1, 1}, {1, 1, 1}), "R = 1"},
        {make_part("TRIPOLE", {1, 1, 180, 1}, {1, 1}), "ANG = 1.8"},
        {make_part("TRIPOLE", {1, 1, -10, 1}, {1, 1}), "ANG = -1"}};
    for (const auto& [part, text] : bad) {
        const std::string errors = errors_of({part});
        EXPECT_TRUE(contains(errors, text) && contains(errors, "part \"" + part.name + "\"")) << errors;
    }
    Part scaled = make_part("RECT", {1e300, 1, 1}, {1, 1, 1});
    scaled.unit_factor = 1e300;
    EXPECT_TRUE(contains(errors_of({scaled}), "too large"));
    scaled.unit_factor = -1;
    EXPECT_TRUE(contains(errors_of({scaled}), "unit factor"));
}

TEST(Meshers, RefuseCountsThatDoNotFitBeforeAllocating) {
    for (const ShapeCase& shape : cases) {
        Divisions d(shape.divisions[0].size(), 2147483647);
        if (d.size() == 4) d[2] = d[0] / 3;  // leaves an opening
        EXPECT_TRUE(contains(errors_of({shape.part(d)}), "do not fit")) << shape.keyword;
    }
    // the parts share what there is of either
    const Part part = make_part("RECT", {1, 1, 1}, {2, 2, 2});
    for (const MeshCounts& left : {MeshCounts{12, 100}, MeshCounts{100, 30}}) {
        Remarks remarks;
        SilentProgress silent;
        MeshContext context{"", left, remarks, silent};
        PartMesh mesh;
        EXPECT_TRUE(mesh_part(part, context, mesh));
        EXPECT_FALSE(mesh_part(part, context, mesh));
        EXPECT_EQ(mesh.node_num(), 0);
    }
}

TEST(Meshers, DivisionsBelowOneMakeNoElementsAndSaySo) {
    for (const ShapeCase& shape : cases)
        for (std::size_t slot = 0; slot < shape.divisions[0].size(); ++slot)
            for (int division : {0, -1, -2147483647 - 1}) {
                Part part = shape.part(shape.divisions.back());
                part.div[slot] = division;
                const Built built = build({part});
                EXPECT_TRUE(built.good && built.mesh.element_num() == 0) << shape.keyword;
                EXPECT_TRUE(built.remarks.notices.size() == 1 &&
                            contains(built.remarks.notices, "without elements"));
            }
}

}  // namespace
