// Which elements stand around a node, and which nodes are connected.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "model/mesh.h"

namespace kestralum {

// Elements around each node: nodes' elements in ascending order.
struct NodeElements {
    std::vector<std::int64_t> start;     // node_num + 1
    std::vector<std::int32_t> elements;  // 0-based element numbers

    // Those around node n (0-based), and whether there are any.
    std::span<const std::int32_t> of(std::int64_t n) const {
        return {elements.data() + start[n], elements.data() + start[n + 1]};
    }
    bool any(std::int64_t n) const { return start[n] != start[n + 1]; }
};
NodeElements elements_of_nodes(const Mesh& mesh);

// Per node the lowest node that it is connected with through elements and `links`, pairs of nodes; all
// 0-based.
std::vector<std::int32_t> connected_nodes(const Mesh& mesh,
                                          std::span<const std::array<std::int32_t, 2>> links = {});

}  // namespace kestralum
