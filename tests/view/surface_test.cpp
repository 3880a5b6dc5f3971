// Drawn faces, edges, outline and normals, measured on boxes of every element kind.
#include "view/surface.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <set>

#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

// aside of the origin, so that no face is without a share of the volume
const Grid plain{{3, 2, 4}, {3, 1, 2}, [](double* x) {
                     x[0] += 3;
                     x[1] += 4;
                     x[2] += 5;
                 }};

double volume_inside(const Mesh& mesh, const Surface& surface) {
    double volume = 0;
    for (std::int64_t t = 0; t < surface.triangle_num(); ++t) {
        const std::int32_t* n = &surface.triangles[3 * t];
        const auto& x = mesh.coordinates;
        volume += dot(triple(x, n[0]), cross(triple(x, n[1]), triple(x, n[2]))) / 6;
    }
    return volume;
}

double total_length(const Mesh& mesh, const std::vector<std::int32_t>& edges) {
    double length = 0;
    for (std::size_t k = 0; k < edges.size(); k += 2)
        length += norm(minus(triple(mesh.coordinates, edges[k]), triple(mesh.coordinates, edges[k + 1])));
    return length;
}

std::size_t distinct_edges(const Surface& surface) {
    std::set<std::pair<std::int32_t, std::int32_t>> seen;
    for (std::size_t k = 0; k < surface.edges.size(); k += 2)
        seen.insert(std::minmax(surface.edges[k], surface.edges[k + 1]));
    return seen.size();
}

struct SurfaceOf : ::testing::TestWithParam<ElementKind> {
    Mesh mesh = box_mesh(plain, GetParam());
    Surface surface = build_surface(mesh, Faces::free);
    std::int64_t faces() const { return surface.triangle_num() / face_table(GetParam()).triangles_per_face; }
};

TEST_P(SurfaceOf, ClosesAroundTheVolumeWithEveryEdgeOnce) {
    EXPECT_NEAR(volume_inside(mesh, surface), 6.0, 1e-12);
    // Euler: V - E + F = 2 on a closed surface. A mid-side node adds one node and one segment.
    const std::int64_t edges = surface.edges.size() / 2, nodes = surface.nodes.size();
    EXPECT_EQ(distinct_edges(surface), edges);
    EXPECT_EQ(nodes - edges + faces(), 2);
    EXPECT_EQ(surface.value_nodes, surface.nodes);
}

// A second part, number 1, up to x = 1.
void cut_in_two(Mesh& mesh) {
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        double x = 0;
        for (const std::int32_t n : mesh.element(e)) x += mesh.node(n - 1)[0] - 3;
        mesh.p_ele_part_id[e] = x > mesh.node_per_element() ? 0 : 1;
    }
}

TEST_P(SurfaceOf, OutlinesTheBoxAndThePartsInIt) {
    EXPECT_NEAR(total_length(mesh, surface.outline), 4 * (3 + 1 + 2), 1e-12);
    cut_in_two(mesh);  // the outline gains the rectangle between them
    const Surface parted = build_surface(mesh, Faces::free);
    EXPECT_NEAR(total_length(mesh, parted.outline), 4 * (3 + 1 + 2) + 2 * (1 + 2), 1e-12);
    ASSERT_EQ(parted.parts.size(), 2u);
    std::int64_t next = 0;
    for (const PartTriangles& part : parted.parts) {
        EXPECT_EQ(part.first, next);
        next += part.count;
        for (std::int64_t t = part.first; t < next; ++t)
            EXPECT_EQ(mesh.p_ele_part_id[parted.triangle_element[t]], part.part);
    }
    EXPECT_EQ(next, surface.triangle_num());
}

// The part that is left is closed where its neighbour was; beside a translucent one the opaque part is.
TEST_P(SurfaceOf, PartsThatAreHiddenOrTranslucentUncoverTheirNeighbours) {
    cut_in_two(mesh);
    const int between =
        GetParam() == ElementKind::hexahedron ? 2 * 4 : 2 * 2 * 4;  // faces at x = 1, one side
    for (const int gone : {0, 1}) {
        PartLooks looks(2);
        looks[gone].visible = false;
        for (const Faces faces : {Faces::free, Faces::all}) {
            const Surface left = build_surface(mesh, faces, part_choice(looks));
            ASSERT_EQ(left.parts.size(), 1u);
            EXPECT_EQ(left.parts[0].part, 1 - gone);
            EXPECT_NEAR(volume_inside(mesh, left), gone ? 4 : 2, 1e-12);
            for (const std::int32_t e : left.triangle_element) EXPECT_EQ(mesh.p_ele_part_id[e], 1 - gone);
        }
        looks[gone] = {.opacity = 0.5};
        Surface both = build_surface(mesh, Faces::free, part_choice(looks));
        EXPECT_EQ(both.triangle_num(),
                  surface.triangle_num() + between * face_table(GetParam()).triangles_per_face);
        EXPECT_NEAR(total_length(mesh, both.outline), 4 * (3 + 1 + 2) + 2 * (1 + 2), 1e-12);
        std::erase_if(both.parts, [&](const PartTriangles& part) { return part.part == gone; });
        both.triangles.erase(both.triangles.begin(), both.triangles.begin() + 3 * both.parts.at(0).first);
        both.triangles.resize(3 * both.parts[0].count);
        both.triangle_element.resize(both.parts[0].count);
        EXPECT_NEAR(volume_inside(mesh, both), gone ? 4 : 2, 1e-12);
    }
}

// Elements that are taken out go as a hidden part does, and the ends of the range stay closed.
TEST_P(SurfaceOf, RemovedElementsUncoverTheirNeighbours) {
    const FaceNumbers numbers = number_faces(mesh);
    cut_in_two(mesh);
    std::vector<std::int32_t> out{-1}, scattered;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        if (mesh.p_ele_part_id[e] == 1) out.push_back(e);
        if (e % 5 == 0 || e % 7 == 3) scattered.push_back(e);
    }
    out.push_back(mesh.element_num());  // of another mesh, as the first
    PartLooks looks(2);
    looks[1].visible = false;
    for (const Faces faces : {Faces::free, Faces::all}) {
        const Surface hidden = build_surface(mesh, faces, part_choice(looks)),
                      left = build_surface(mesh, faces, {}, {out, &numbers});
        EXPECT_EQ(left.triangles, hidden.triangles);
        EXPECT_EQ(left.triangle_element, hidden.triangle_element);
        EXPECT_EQ(left.edges, hidden.edges);
        EXPECT_EQ(left.outline, hidden.outline);
    }
    const double share = static_cast<double>(scattered.size()) / mesh.element_num();
    const Surface free = build_surface(mesh, Faces::free, {}, {scattered, &numbers}),
                  all = build_surface(mesh, Faces::all, {}, {scattered, &numbers});
    EXPECT_NEAR(volume_inside(mesh, free), volume_inside(mesh, all), 1e-12);
    if (GetParam() == ElementKind::hexahedron) {
        EXPECT_NEAR(volume_inside(mesh, free), 6 * (1 - share), 1e-12);
    }
    const std::vector<char> bare = bare_nodes(mesh, scattered);
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        EXPECT_EQ(std::ranges::binary_search(all.nodes, n), !bare[n]) << n;
    EXPECT_TRUE(bare_nodes(mesh, {}).empty());
    // a face of three elements shows where one of them is left
    mesh.connectivity.insert(mesh.connectivity.end(), mesh.element(0).begin(), mesh.element(0).end());
    mesh.p_ele_part_id.push_back(0);
    const std::int32_t twin = mesh.element_num() - 1;
    std::vector<std::int32_t> others(twin);
    std::iota(others.begin(), others.end(), 0);
    const FaceNumbers doubled = number_faces(mesh);
    EXPECT_EQ(build_surface(mesh, Faces::free, {}, {others, &doubled}).triangle_num(),
              face_table(GetParam()).faces * face_table(GetParam()).triangles_per_face);
    others.erase(others.begin());
    EXPECT_EQ(build_surface(mesh, Faces::free, {}, {others, &doubled}).triangle_num(), 0);
}

TEST_P(SurfaceOf, HighlightsFacesWithTheirRimAndParts) {
    cut_in_two(mesh);
    const Surface parted = build_surface(mesh, Faces::free);
    Highlight highlight;
    highlight.faces = {{-1, 0}, {0, 99}, {mesh.element_num(), 0}};  // of another mesh
    EXPECT_TRUE(highlight_surface(mesh, parted, highlight).triangles.empty());
    // of each part the faces that are drawn, with the rim between them
    for (const int part : {0, 1}) {
        highlight.parts = {part};
        const Surface lit = highlight_surface(mesh, parted, highlight);
        EXPECT_EQ(lit.triangle_num(), parted.parts[part].count);
        EXPECT_NEAR(total_length(mesh, lit.outline), 4 * ((part ? 1 : 2) + 1 + 2), 1e-12);
        if (part == 1) {
            highlight.faces.push_back(face_of_triangle(mesh, parted, 0).value());
            EXPECT_EQ(highlight_surface(mesh, parted, highlight).triangle_num(),
                      lit.triangle_num() + face_table(GetParam()).triangles_per_face);
        }
    }
}

TEST_P(SurfaceOf, DrawsEveryFaceWhenTransparent) {
    const Surface all = build_surface(mesh, Faces::all);
    const FaceTable table = face_table(GetParam());
    EXPECT_EQ(all.triangle_num(), std::int64_t{mesh.element_num()} * table.faces * table.triangles_per_face);
    EXPECT_NEAR(volume_inside(mesh, all), 6.0, 1e-11);  // every element closes by itself
    EXPECT_EQ(distinct_edges(all), all.edges.size() / 2);
    EXPECT_EQ(all.nodes.size(), mesh.node_num());
    // Euler in a solid: V - E + F - C = 1, each inner face drawn from both its elements
    const std::int64_t faces_once = (std::int64_t{mesh.element_num()} * table.faces + faces()) / 2;
    const std::int64_t edges = all.edges.size() / 2;
    EXPECT_EQ(mesh.node_num() - edges + faces_once - mesh.element_num(), 1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, SurfaceOf, ::testing::ValuesIn(every_kind));

TEST(Surface, DrawsFacetsApartFromElements) {
    Mesh mesh = hexa_box({{1, 1, 1}, {1, 1, 1}});
    mesh.coordinates.insert(mesh.coordinates.end(), {5, 0, 0, 6, 0, 0, 5, 1, 0, 5, 0, 1});
    mesh.surface_facets = {9, 11, 10, 9, 10, 12, 10, 11, 12, 9, 12, 11};
    mesh.surface_part_id = {1, 1, 1, 1};
    const Surface surface = build_surface(mesh, Faces::free);
    EXPECT_NEAR(volume_inside(mesh, surface), 1 + 1.0 / 6, 1e-12);
    EXPECT_EQ(surface.nodes.size(), 12u);
    EXPECT_EQ(surface.value_nodes.size(), 8u);
    EXPECT_EQ(surface.parts.at(1).part, 1);
    EXPECT_EQ(surface.triangle_element.back(), -1);
    EXPECT_EQ(surface.edges.size() / 2, 12u + 6u);
    const auto normals = triangle_normals(surface, mesh.coordinates);
    EXPECT_FLOAT_EQ(normals[3 * surface.parts[1].first + 2], -1);
    EXPECT_EQ(surface.outline.size() / 2, 12u + 6u);
    // an open sheet is outlined along its rim, not along its fold-free diagonal
    mesh.surface_facets = {9, 10, 11, 10, 13, 11};
    mesh.surface_part_id = {1, 1};
    mesh.coordinates.insert(mesh.coordinates.end(), {6, 1, 0});
    EXPECT_EQ(build_surface(mesh, Faces::free).outline.size() / 2, 12u + 4u);
}

}  // namespace
