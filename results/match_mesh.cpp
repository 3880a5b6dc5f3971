#include "results/match_mesh.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "model/format.h"
#include "model/token_reader.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

constexpr std::int32_t none = -1;

// Gives each node of an element its counterpart; the first place of the connectivity where two elements
// disagree, -1 where none do.
std::int64_t match_elements(const Mesh& own, const Mesh& read, std::vector<std::int32_t>& node_of,
                            std::vector<std::int32_t>& own_of) {
    for (std::size_t k = 0; k < own.connectivity.size(); ++k) {
        const std::int32_t a = own.connectivity[k] - 1, b = read.connectivity[k] - 1;
        if (node_of[a] == none && own_of[b] == none) {
            node_of[a] = b;
            own_of[b] = a;
        }
        if (node_of[a] != b || own_of[b] != a) return static_cast<std::int64_t>(k);
    }
    return -1;
}

// The nodes without a counterpart by their coordinates, as a file has them.
using Places = std::vector<std::pair<std::array<double, 3>, std::int32_t>>;
Places loose_nodes(const Mesh& mesh, const std::vector<std::int32_t>& counterpart) {
    Places places;
    std::string text;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        if (counterpart[n] != none) continue;
        places.push_back({{}, n});
        for (std::size_t c = 0; c < 3; ++c) {
            text.clear();
            append_e(text, mesh.node(n)[c]);
            places.back().first[c] = parse_double(text).value_or(0);
        }
    }
    std::sort(places.begin(), places.end());
    return places;
}

bool same_place(const double* a, const double* b, double max_length, Coordinates given) {
    const double written = given == Coordinates::as_written ? 5.1e-7 : 0;  // half of the last digit
    for (int c = 0; c < 3; ++c)                                            // and what two machines differ by
        if (!(std::abs(a[c] - b[c]) <= written * std::abs(a[c]) + 1e-9 * max_length)) return false;
    return true;
}

}  // namespace

MeshMatch match_meshes(const Mesh& a, const Mesh& b, Coordinates given) {
    const int of_a = nodes_per_element(a.element_type), of_b = nodes_per_element(b.element_type);
    if (of_a != of_b)
        return {{}, formatted("one has elements of %d nodes, the other of %d nodes", of_a, of_b)};
    if (a.element_num() != b.element_num())
        return {{}, formatted("one has %d elements, the other %d", a.element_num(), b.element_num())};
    if (a.node_num() != b.node_num())
        return {{}, formatted("one has %d nodes, the other %d", a.node_num(), b.node_num())};
    std::vector<std::int32_t> node_of(a.node_num(), none), own_of(a.node_num(), none);
    if (const std::int64_t at = match_elements(a, b, node_of, own_of); at >= 0)
        return {{}, formatted("element %ld joins other nodes", static_cast<long>(at / of_a + 1))};
    // nodes of facets, which are on no element
    const Places left = loose_nodes(a, node_of), right = loose_nodes(b, own_of);
    for (std::size_t k = 0; k < left.size(); ++k) node_of[left[k].second] = right[k].second;
    for (std::int32_t n = 0; n < a.node_num(); ++n) {
        const double *x = a.node(n), *y = b.node(node_of[n]);
        if (!same_place(x, y, a.max_length, given))
            return {{},
                    formatted("node %d is at (%.9g, %.9g, %.9g), its counterpart at (%.9g, %.9g, %.9g)",
                              n + 1, x[0], x[1], x[2], y[0], y[1], y[2])};
    }
    return {std::move(node_of), {}};
}

std::vector<std::int32_t> match_nodes(const Mesh& own, const Mesh& read) {
    return match_meshes(own, read, Coordinates::as_written).node_of;
}

}  // namespace kestralum
