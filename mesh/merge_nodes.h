// Nodes of different parts that stand at one place become one node.
#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "model/progress.h"

namespace kestralum {

// Nodes [first, last) of one part, 0-based; a part that merges with nobody keeps all its own.
struct NodeRange {
    std::int64_t first = 0, last = 0;
    bool merges = true;
};

struct MergedNodes {
    std::vector<std::int32_t> target;  // per node: the node that stands for it, itself if it stays
    std::int32_t merged = 0;           // nodes that gave way
    std::vector<std::pair<std::int32_t, std::int32_t>> part_pairs;  // parts that share nodes, ascending
};

// Merges nodes of different parts within `tolerance` (m). A node gives way to one of an earlier
// part that stays itself, so distances never add up along a chain; the closest pairs come first,
// and a node takes at most one of each part, so nodes of one part never become one. O(n log n).
// False, with the parts in `crowded`, when nodes lie so much closer than the tolerance that the
// question has no sensible answer. Ends early, with some nodes merged, where `progress` asks to stop.
bool merge_coincident_nodes(std::span<const double> coordinates, std::span<const NodeRange> parts,
                            double tolerance, MergedNodes& merged,
                            std::pair<std::int32_t, std::int32_t>& crowded, const Progress& progress);

}  // namespace kestralum
