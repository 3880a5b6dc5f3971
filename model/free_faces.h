// The faces of a mesh that belong to one element only: its surface.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "model/progress.h"
#include "model/topology.h"
#include "model/vector3.h"

namespace kestralum {

// Faces whose corner nodes no other element shares, in element order. O(faces).
// With a `progress` that is cancelled meanwhile: at once, without a face.
std::vector<ElementFace> free_faces(const Mesh& mesh, const Progress* progress = nullptr);

// The face's area (m^2) as a vector that points out of its element.
Vec3 area_vector(const Mesh& mesh, const ElementFace& face);

struct SurfaceTriangle {
    std::array<std::int32_t, 3> node;  // 0-based, winding outwards
    std::int32_t part;
};

// The free faces cut into triangles, in their order, and the nodes of such a surface, ascending.
std::vector<SurfaceTriangle> surface_triangles(const Mesh& mesh);
// The free faces all of whose nodes are chosen (node_num flags), and their triangles, without a look at the
// rest of the mesh.
std::vector<ElementFace> free_faces_of(const Mesh& mesh, const NodeElements& node_elements,
                                       std::span<const char> chosen);
std::vector<SurfaceTriangle> surface_triangles_of(const Mesh& mesh, const NodeElements& node_elements,
                                                  std::span<const char> chosen);
std::vector<std::int32_t> surface_nodes(std::span<const SurfaceTriangle> surface, std::int32_t node_num);

}  // namespace kestralum
