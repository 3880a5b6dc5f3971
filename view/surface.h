// The faces and edges of a mesh that are drawn, as index arrays. They depend on the mesh only:
// displacement and colour are looked up by node.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "model/model.h"
#include "model/removed_elements.h"
#include "view/part_look.h"
#include "view/vector.h"

namespace kestralum::view {

// Triangles of one part, consecutive in Surface::triangles.
struct PartTriangles {
    std::int32_t part;   // index of the part, -1 where the mesh has none
    std::int64_t first;  // triangle
    std::int64_t count;
    int triangles_per_face;  // consecutive triangles that make one face and share its normal
};

struct Surface {
    std::vector<std::int32_t> triangles;         // × 3: 0-based nodes, winding outwards
    std::vector<std::int32_t> triangle_element;  // × 1: 0-based element, -1 for facets of STL parts
    std::vector<PartTriangles> parts;            // solid parts ascending, then parts of facets
    std::vector<std::int32_t> edges;        // × 2: every drawn element edge once; mid-side nodes split it
    std::vector<std::int32_t> outline;      // × 2: the edges that show the shape; free faces only
    std::vector<std::int32_t> nodes;        // drawn nodes, ascending
    std::vector<std::int32_t> value_nodes;  // of these, the nodes of elements: they carry results

    std::int64_t triangle_num() const { return triangle_element.size(); }
};

enum class Faces {
    free,  // of one element only: all that an opaque model shows
    all,   // every face of every element: what a transparent model shows
};

// Which parts are drawn, by the index of the part; parts that the lists do not reach are drawn opaque.
struct PartChoice {
    std::vector<char> hidden;
    std::vector<char> clear;  // translucent: the faces of opaque parts behind them are drawn too
    bool operator==(const PartChoice&) const = default;
};
PartChoice part_choice(const PartLooks& looks);

// Elements that are not drawn, as if they were in a part that is hidden.
struct RemovedElements {
    std::span<const std::int32_t> elements;  // 0-based; others than the mesh's are passed over
    const FaceNumbers* numbers = nullptr;    // of the mesh; null where there are no elements
};

// Per element (flags) whether it is in a hidden part or removed.
std::vector<char> gone_elements(const Mesh& mesh, const std::vector<char>& hidden,
                                const RemovedElements& removed = {});

// O(faces). Of the elements of parts that are not hidden, as if there were no others. An edge belongs to the
// outline where its faces meet at more than 30°, belong to different parts or are not two. Facets of STL
// parts are drawn in both cases.
Surface build_surface(const Mesh& mesh, Faces faces, const PartChoice& choice = {},
                      const RemovedElements& removed = {});

// Of what is highlighted: the faces, and those of `outside` that belong to the parts. The outline shows the
// rim as well.
Surface highlight_surface(const Mesh& mesh, const Surface& outside, const Highlight& highlight);

// The face that a triangle of a surface belongs to; none for facets of STL parts.
std::optional<ElementFace> face_of_triangle(const Mesh& mesh, const Surface& surface, std::int64_t triangle);

// The faces of solid elements that a surface has, ascending.
std::vector<ElementFace> faces_of(const Mesh& mesh, const Surface& surface);

// Unit normal per triangle at `coordinates` (node_num × 3): the triangles of a face share that of the
// whole face. 0 for a face without area.
std::vector<float> triangle_normals(const Surface& surface, std::span<const double> coordinates);

// Unit normal per triangle corner (9 values a triangle) at `coordinates`: the mean, by area, of those of the
// faces at the corner that meet its own at less than 30°, so that round shapes look round and edges stay
// sharp.
std::vector<float> corner_normals(const Surface& surface, std::span<const double> coordinates);

}  // namespace kestralum::view
