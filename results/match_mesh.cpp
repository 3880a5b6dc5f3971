#include "results/match_mesh.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "model/token_reader.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

constexpr std::int32_t none = -1;

// Gives each node of an element its counterpart; false where two elements disagree.
bool match_elements(const Mesh& own, const Mesh& read, std::vector<std::int32_t>& node_of,
                    std::vector<std::int32_t>& own_of) {
    for (std::size_t k = 0; k < own.connectivity.size(); ++k) {
        const std::int32_t a = own.connectivity[k] - 1, b = read.connectivity[k] - 1;
        if (node_of[a] == none && own_of[b] == none) {
            node_of[a] = b;
            own_of[b] = a;
        }
        if (node_of[a] != b || own_of[b] != a) return false;
    }
    return true;
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

bool same_place(const double* a, const double* b, double max_length) {
    for (int c = 0; c < 3; ++c)  // half of the last digit, and what two machines differ by
        if (!(std::abs(a[c] - b[c]) <= 5.1e-7 * std::abs(a[c]) + 1e-9 * max_length)) return false;
    return true;
}

}  // namespace

std::vector<std::int32_t> match_nodes(const Mesh& own, const Mesh& read) {
    if (own.element_type != read.element_type || own.node_num() != read.node_num() ||
        own.connectivity.size() != read.connectivity.size())
        return {};
    std::vector<std::int32_t> node_of(own.node_num(), none), own_of(own.node_num(), none);
    if (!match_elements(own, read, node_of, own_of)) return {};
    // nodes of facets, which such a file does not have
    const Places left = loose_nodes(own, node_of), right = loose_nodes(read, own_of);
    for (std::size_t k = 0; k < left.size(); ++k) node_of[left[k].second] = right[k].second;
    for (std::int32_t n = 0; n < own.node_num(); ++n)
        if (!same_place(own.node(n), read.node(node_of[n]), own.max_length)) return {};
    return node_of;
}

}  // namespace kestralum
