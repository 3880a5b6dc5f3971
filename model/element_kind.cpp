#include "model/element_kind.h"

namespace kestralum {

namespace {

// Reverses every triangle of a table: the tables of the hexahedron and of the ten-node
// tetrahedron wind inwards.
template <std::size_t N>
constexpr std::array<int, 3 * N> reversed(const std::array<std::array<int, 3>, N>& triangles) {
    std::array<int, 3 * N> out{};
    for (std::size_t t = 0; t < N; ++t) {
        out[3 * t] = triangles[t][0];
        out[3 * t + 1] = triangles[t][2];
        out[3 * t + 2] = triangles[t][1];
    }
    return out;
}

constexpr std::array<int, 36> hexa_outward = reversed(hexa_face_tri);

constexpr std::array<int, 48> tetra10_outward = [] {
    std::array<int, 48> out{};
    for (std::size_t f = 0; f < 4; ++f) {
        const auto face = reversed(tetra10_face_tri[f]);
        for (std::size_t k = 0; k < 12; ++k) out[12 * f + k] = face[k];
    }
    return out;
}();

}  // namespace

FaceTable face_table(ElementKind kind) {
    switch (kind) {
        case ElementKind::tetrahedron4:
            return {4, 3, 1};
        case ElementKind::tetrahedron10:
            return {4, 3, 4};
        default:
            return {6, 4, 2};
    }
}

std::span<const int> face_corners(ElementKind kind, int face) {
    const std::size_t f = face;
    if (kind == ElementKind::tetrahedron4 || kind == ElementKind::tetrahedron10) return tetra_face[f];
    return hexa_face[f];
}

std::span<const int> outward_triangles(ElementKind kind, int face) {
    const std::size_t f = face;
    if (kind == ElementKind::tetrahedron4) return tetra_face[f];
    if (kind == ElementKind::tetrahedron10) return std::span(tetra10_outward).subspan(12 * f, 12);
    return std::span(hexa_outward).subspan(6 * f, 6);
}

}  // namespace kestralum
