// Whether two meshes are the same one, whatever the numbers of their nodes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/mesh.h"

namespace kestralum {

enum class Coordinates {
    exact,       // within 1e-9 of the largest edge
    as_written,  // those of one mesh as a file has them, "%e"
};

struct MeshMatch {
    std::vector<std::int32_t> node_of;  // per node of a its node in b (both 0-based)
    std::string why_not;                // in one line, where they are not the same; node_of is empty then
    bool same() const { return why_not.empty(); }
};
// Of the same kind, counts and connectivity, elements in the same order, nodes at the same places.
MeshMatch match_meshes(const Mesh& a, const Mesh& b, Coordinates given);

// Per node of `own` its node in `read` (both 0-based), where `read` is the same mesh with its nodes numbered
// in another order and its coordinates written as "%e". Elements keep their order. Empty where it is not.
std::vector<std::int32_t> match_nodes(const Mesh& own, const Mesh& read);

}  // namespace kestralum
