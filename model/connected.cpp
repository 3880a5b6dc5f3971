#include "model/connected.h"

#include <algorithm>
#include <numeric>

namespace kestralum {

// Union by the lower node, with paths halved on the way (Tarjan and van Leeuwen, J. ACM 31, 1984).
std::vector<std::int32_t> connected_nodes(const Mesh& mesh,
                                          std::span<const std::array<std::int32_t, 2>> links) {
    std::vector<std::int32_t> up(static_cast<std::size_t>(mesh.node_num()));
    std::iota(up.begin(), up.end(), 0);
    const auto find = [&](std::int32_t n) {
        while (up[static_cast<std::size_t>(n)] != n) {
            std::int32_t& next = up[static_cast<std::size_t>(n)];
            n = next = up[static_cast<std::size_t>(next)];
        }
        return n;
    };
    const auto join = [&](std::int32_t m, std::int32_t n) {
        const std::int32_t a = find(m), b = find(n);
        up[static_cast<std::size_t>(std::max(a, b))] = std::min(a, b);
    };
    const auto per_element = static_cast<std::size_t>(mesh.node_per_element());
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
