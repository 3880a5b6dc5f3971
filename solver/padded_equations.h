// The equations of a system of elasticity as rows of 3 × 3 blocks, one for every node that has any.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "solver/block_pattern.h"
#include "solver/sparse.h"

namespace kestralum {

// Where the equations stand.
struct EquationPlaces {
    std::span<const std::int32_t> dof;  // equations: 3 · node + direction, ascending; any of a node's three
    std::span<const double> coordinates;  // 3 · nodes, m
};

// Directions without an equation are rows of zeros.
struct PaddedEquations {
    std::vector<std::int32_t> place;  // equations: 3 · block row + direction
    std::vector<std::int32_t> first;  // block rows + 1: first equation
    std::vector<std::int32_t> node;   // block rows
    std::vector<char> whole;          // block rows, see find_whole()

    std::int32_t rows() const { return static_cast<std::int32_t>(node.size()); }
};

// What of the matrix and the places does not fit or is no number; empty when all is well or the team gives
// up.
std::string find_fault(const SparseKM& km, std::span<const double> values, const EquationPlaces& places,
                       RowTeam& team);

// All but `whole`.
PaddedEquations pad(std::span<const std::int32_t> dof);

// Block rows of three equations, stored one behind the other, whose columns all come in threes: what
// multiply() can take as a whole.
std::vector<char> find_whole(const SparseKM& km, const PaddedEquations& equations, RowTeam& team);

BlockPattern pattern_of(const SparseKM& km, const PaddedEquations& equations, RowTeam& team);

// Block row i of the pattern above, blocks column-major.
void load_row(const SparseKM& km, std::span<const double> values, const PaddedEquations& equations,
              const BlockPattern& pattern, std::int32_t i, double* to);

// The six motions of a rigid body (turns about the middle, of the whole's size) at the degrees of freedom
// that are live; 3 · rows × 6, row-major.
std::vector<double> rigid_motions(const PaddedEquations& equations, std::span<const double> coordinates,
                                  const std::vector<char>& live);

// y = values · x, and the sums of its terms' sizes; not whole where the team gives up.
void multiply(const SparseKM& km, std::span<const double> values, const PaddedEquations& equations,
              std::span<const double> x, std::span<double> y, RowTeam& team);
void multiply_absolute(const SparseKM& km, std::span<const double> values, std::span<const double> x,
                       std::span<double> y, RowTeam& team);

}  // namespace kestralum
