// The mass of the free nodes, one number per pair of nodes: an element's mass is the same in each direction
// and couples none with another, so that M = M_node ⊗ I₃ on the directions that are free.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "solver/sparse.h"

namespace kestralum {

class NodeMass {
public:
    // `km`: [M] on the degrees of freedom free_dofs (3·node + direction, ascending), one row each.
    NodeMass(const SparseKM& km, std::span<const std::int32_t> free_dofs);

    // Nodes with a free direction, counted in their order.
    std::int32_t nodes() const { return static_cast<std::int32_t>(start_.size()) - 1; }
    // The row of [M] of a node's direction, -1 where it is fixed.
    std::int32_t row(std::int32_t node, std::int32_t direction) const {
        return row_[3 * std::int64_t{node} + direction];
    }
    // The nodes that are free in a direction, ascending, and the mass of every pair of them in M_value.
    std::vector<std::int32_t> free_in(std::int32_t direction) const;
    SparseKM among(std::span<const std::int32_t> nodes) const;

    // y = M x for k columns, n apart; 0 below the last row of [M]. Every row's sum runs in the order of its
    // entries whatever the threads. One call at a time: the columns are interleaved in room of the object.
    void multiply(std::span<const double> x, std::span<double> y, std::int64_t n, std::int32_t k,
                  int threads);

private:
    void add_pairs(const SparseKM& km, std::span<const std::int32_t> free_dofs,
                   const std::vector<std::int32_t>& node_of_row, std::int32_t node,
                   std::vector<double>& mass_to);
    template <std::int32_t columns>
    void multiply_some(const double* x, double* y, std::int64_t n, int threads);

    std::int64_t rows_;                // of [M]
    std::vector<std::int64_t> start_;  // nodes + 1
    std::vector<std::int32_t> other_;  // pairs: the second node, ascending
    std::vector<double> mass_;         // pairs, kg
    std::vector<std::int32_t> row_;    // 3 per node
    std::vector<double> room_;         // 3 directions × up to 4 columns per node
};

}  // namespace kestralum
