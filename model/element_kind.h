// The solid element kinds, their node counts and face tables.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace kestralum {

// One kind holds for the whole mesh; the value is `element_type` of the files.
enum class ElementKind : std::int32_t { hexahedron = 0, tetrahedron4 = 1, tetrahedron10 = 2 };

// How 8-node hexahedra are integrated.
enum class HexahedronForm {
    full,            // 2 x 2 x 2 points, as it stands
    enhanced,        // with internal strains: bends without locking
    mean_dilatation  // one volume change per element: flows without locking
};
inline constexpr std::array<std::string_view, 3> hexahedron_words{"full", "enhanced", "mean-dilatation"};
constexpr const char* word_of(HexahedronForm form) {
    return hexahedron_words[static_cast<std::size_t>(form)].data();
}
// The form of a word; nothing where it is none of them.
constexpr std::optional<HexahedronForm> hexahedron_form_of(std::string_view word) {
    for (std::size_t k = 0; k < hexahedron_words.size(); ++k)
        if (word == hexahedron_words[k]) return static_cast<HexahedronForm>(k);
    return std::nullopt;
}

// Nodes per element: 8, 4, 10; any other file value counts as 8.
constexpr int nodes_per_element(ElementKind kind) {
    return kind == ElementKind::tetrahedron4 ? 4 : kind == ElementKind::tetrahedron10 ? 10 : 8;
}

// Index of a 1-based node number.
constexpr std::int64_t node_index(std::int32_t node_number) {
    return std::int64_t{node_number} - 1;
}

// Corner offsets (i, j, k) of the hexahedron's eight local nodes along the part's directions.
inline constexpr std::array<std::array<int, 3>, 8> hexa_corner{
    {{0, 0, 1}, {0, 0, 0}, {0, 1, 0}, {0, 1, 1}, {1, 0, 1}, {1, 0, 0}, {1, 1, 0}, {1, 1, 1}}};

// Faces by 0-based local node. hexa_face_tri and tetra10_face_tri wind inwards, the other two
// as listed; outward_triangles() gives a consistent outward winding for all kinds.
inline constexpr std::array<std::array<int, 4>, 6> hexa_face{
    {{0, 3, 2, 1}, {4, 5, 6, 7}, {1, 2, 6, 5}, {2, 3, 7, 6}, {0, 4, 7, 3}, {0, 1, 5, 4}}};
inline constexpr std::array<std::array<int, 3>, 12> hexa_face_tri{{{0, 2, 3},
                                                                   {0, 1, 2},
                                                                   {4, 6, 5},
                                                                   {4, 7, 6},
                                                                   {1, 6, 2},
                                                                   {1, 5, 6},
                                                                   {2, 7, 3},
                                                                   {2, 6, 7},
                                                                   {0, 7, 4},
                                                                   {0, 3, 7},
                                                                   {0, 5, 1},
                                                                   {0, 4, 5}}};
inline constexpr std::array<std::array<int, 3>, 4> tetra_face{{{2, 3, 1}, {3, 2, 0}, {1, 3, 0}, {2, 1, 0}}};
inline constexpr std::array<std::array<std::array<int, 3>, 4>, 4> tetra10_face_tri{
    {{{{1, 8, 5}, {2, 5, 9}, {3, 9, 8}, {5, 8, 9}}},
     {{{0, 6, 7}, {2, 9, 6}, {3, 7, 9}, {6, 9, 7}}},
     {{{0, 7, 4}, {1, 4, 8}, {3, 8, 7}, {4, 7, 8}}},
     {{{0, 4, 6}, {1, 5, 4}, {2, 6, 5}, {4, 5, 6}}}}};

// Mid-side node of the ten-node tetrahedron: local nodes 4 … 9 lie between these corners.
inline constexpr std::array<std::array<int, 2>, 6> tetra10_edge{
    {{0, 1}, {1, 2}, {0, 2}, {0, 3}, {1, 3}, {2, 3}}};

// Local node (4 … 9) of the ten-node tetrahedron between two of its corners, in either order.
constexpr int tetra10_middle(int a, int b) {
    int node = 4;
    for (const auto& [low, high] : tetra10_edge) {
        if ((low == a && high == b) || (low == b && high == a)) break;
        ++node;
    }
    return node;
}

// The surface of one element, ready for normals and drawing.
struct FaceTable {
    int faces;               // 6 or 4
    int corners;             // corner nodes of a face: 4 or 3
    int triangles_per_face;  // 2, 1 or 4
};
FaceTable face_table(ElementKind kind);

// Corner nodes (0-based local) of face f: 4 for the hexahedron, 3 for both tetrahedra.
std::span<const int> face_corners(ElementKind kind, int face);

// Triangles of face f as consecutive local node triples, winding so that (b-a)×(c-a) points out
// of an element of positive volume.
std::span<const int> outward_triangles(ElementKind kind, int face);

}  // namespace kestralum
