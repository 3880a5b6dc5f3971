// Node renumbering for a narrow band: nodes are sorted by their distance from a far or central
// point, so that neighbours get neighbouring numbers.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "model/mesh.h"
#include "model/progress.h"

namespace kestralum {

// Band measure: the largest value over all elements of 3·(largest node - smallest node) + 3;
// 0 without elements.
std::int32_t measure_band(const Mesh& mesh);

// Gives node n (0-based) the number new_number[n] in connectivity, surface facets and coordinates.
void renumber_nodes(Mesh& mesh, std::span<const std::int32_t> new_number);

// Renumbers the nodes in place: connectivity, surface facets and coordinates (node_n_dir is not
// touched; it must be rebuilt). Methods: LX LY LZ sort along an axis, LMAX along the longest one
// of the bounding box; any other word as LX.
// Stable: nodes at the same distance keep their order. O(n log n). Returns the new number (0-based) of each
// node.
std::vector<std::int32_t> reorder_nodes(Mesh& mesh, std::string_view method, Progress& progress);

// The linear analyses' choice by the setting ORDERING_TYPE: tries the axes that the word names,
// reorders with the best (ties keep the earlier axis). Words that are not understood leave the numbering as
// it is, and so does a cancel for what is left to do.
struct Ordering {
    std::int32_t diag_num = 0;          // band in force
    std::vector<std::int32_t> node_of;  // per node before: its number now, 0-based
};
Ordering order_nodes(Mesh& mesh, std::string_view ordering_type, Progress& progress);

}  // namespace kestralum
