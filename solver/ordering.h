// Node renumbering for a narrow band: nodes are sorted by their distance from a far or central
// point, so that neighbours get neighbouring numbers.
#pragma once

#include <cstdint>
#include <string_view>

#include "model/model_store.h"

namespace kestralum {

// Band measure: the largest value over all elements of 3·(largest node - smallest node) + 3;
// 0 without elements.
std::int32_t measure_band(const Mesh& mesh);

// Renumbers the nodes in place: connectivity, surface facets and coordinates (node_n_dir is not
// touched; it must be rebuilt). Methods: LX LY LZ sort along an axis, LMAX along the longest one
// of the bounding box, CTR from the box's centre, DCTR from the nodes' mean; any other word as LX.
// Stable: nodes at the same distance keep their order. O(n log n).
void reorder_nodes(Mesh& mesh, std::string_view method);

// The linear analyses' choice by the setting ORDERING_TYPE: tries the axes that the word names,
// reorders with the best (ties keep the earlier axis) and returns the band in force. Words that are
// not understood leave the numbering as it is.
std::int32_t order_nodes(Mesh& mesh, std::string_view ordering_type);

}  // namespace kestralum
