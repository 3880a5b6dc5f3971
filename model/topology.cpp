#include "model/topology.h"

#include <algorithm>
#include <numeric>

namespace kestralum {

NodeElements elements_of_nodes(const Mesh& mesh) {
    const std::size_t nodes = mesh.node_num();
    const std::size_t per_element = mesh.node_per_element();
    NodeElements out;
    out.start.assign(nodes + 1, 0);
    out.elements.resize(mesh.connectivity.size());
    for (std::int32_t c : mesh.connectivity) ++out.start[c];
    for (std::size_t n = 0; n < nodes; ++n) out.start[n + 1] += out.start[n];
    std::vector<std::int64_t> place(out.start.begin(), out.start.end() - 1);
    for (std::size_t k = 0; k < mesh.connectivity.size(); ++k) {
        const std::size_t node = node_index(mesh.connectivity[k]);
        out.elements[place[node]++] = static_cast<std::int32_t>(k / per_element);
    }
    return out;
}

// Union by the lower node, with paths halved on the way (Tarjan and van Leeuwen, J. ACM 31, 1984).
std::vector<std::int32_t> connected_nodes(const Mesh& mesh,
                                          std::span<const std::array<std::int32_t, 2>> links) {
    std::vector<std::int32_t> up(mesh.node_num());
    std::iota(up.begin(), up.end(), 0);
    const auto find = [&](std::int32_t n) {
        while (up[n] != n) {
            std::int32_t& next = up[n];
            n = next = up[next];
        }
        return n;
    };
    const auto join = [&](std::int32_t m, std::int32_t n) {
        const std::int32_t a = find(m), b = find(n);
        up[std::max(a, b)] = std::min(a, b);
    };
    const std::size_t per_element = mesh.node_per_element();
    const auto node = [&](std::size_t k) {
        return static_cast<std::int32_t>(node_index(mesh.connectivity[k]));
    };
    for (std::size_t k = 0; k < mesh.connectivity.size(); ++k)
        join(node(k / per_element * per_element), node(k));
    for (const auto& [m, n] : links) join(m, n);
    for (std::size_t n = 0; n < up.size(); ++n) up[n] = find(static_cast<std::int32_t>(n));
    return up;
}

}  // namespace kestralum
