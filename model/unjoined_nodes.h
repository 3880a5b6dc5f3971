// Places where two parts touch without being joined: parts of unlike divisions share only the nodes that
// happen to coincide, and their faces can slide and part between them.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "model/mesh.h"
#include "model/progress.h"

namespace kestralum {

struct UnjoinedContact {
    std::array<std::int32_t, 2> part{};   // indices, ascending
    std::array<std::int64_t, 2> nodes{};  // of each: nodes on a face of the other that no element of it has
    std::int64_t joined = 0;              // nodes that elements of both have
    std::int32_t first_node = 0;          // 1-based: the first of the nodes counted
};

// The pairs of parts that have such nodes, ascending. A node lies on a face when it is within
// merging_fraction of the elements' extent of it; faces are the free faces of the mesh, cut into triangles.
// O(n log n) in the nodes and faces of the surface. Not all pairs where `progress` asks to stop.
std::vector<UnjoinedContact> find_unjoined_nodes(const Mesh& mesh, const Progress& progress);

}  // namespace kestralum
