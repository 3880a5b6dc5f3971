// The order of elimination of a pattern with little fill, and the shapes of the fronts in it; see
// front_tree.h.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "solver/sparse.h"

namespace kestralum {

using Indices = std::vector<std::int32_t>;

// Neighbouring equations with the same columns, and the graph of these groups without loops.
struct Groups {
    Indices start;  // groups + 1: first equation
    std::vector<std::int64_t> neighbour_start;
    Indices neighbours;  // ascending
    std::vector<char> late;

    std::int32_t count() const { return static_cast<std::int32_t>(start.size()) - 1; }
    std::int32_t size(std::int32_t g) const { return start[g + 1] - start[g]; }
    std::span<const std::int32_t> neighbours_of(std::int32_t g) const {
        return std::span(neighbours).subspan(neighbour_start[g], neighbour_start[g + 1] - neighbour_start[g]);
    }
};

Groups make_groups(const SparseKM& km, std::span<const char> late);

// The groups by nested dissection, late ones each behind the first of its neighbours.
Indices order_groups(const Groups& groups);

Indices inverse_of(const Indices& order);

// Entries of a lower trapezoid.
double lower_entries(double columns, double rows);

// Amalgamated supernodes in the order of elimination: per front its number of groups, its parent; `order` is
// rearranged to it.
struct FrontShape {
    std::int32_t groups = 0, parent = -1;
};

std::vector<FrontShape> shape_fronts(const Groups& groups, Indices& order);

}  // namespace kestralum
