// The diagonals of [K] and [M] and their sums, without the matrices: what an explicit analysis takes from
// them.
#pragma once

#include <vector>

#include "solver/sparse.h"
#include "system/freedoms.h"

namespace kestralum {

struct MatrixDiagonals {
    std::vector<double> K, M;  // per degree of freedom of the mesh: N/m, kg
    double mass_sum = 0;       // of all entries of [M]: three times the total mass, kg
    double stiffness_sum = 0;  // of the entries of [K] between free degrees of freedom
    std::int32_t bad_element =
        -1;  // the first (0-based) that could not be computed; the rest is then unfinished
};

// Sums the elements' matrices node by node, in the order in which assemble_km() adds them and a row's entries
// stand, so that every value is that of the assembled matrices to the last bit. `dof_map`: -1 = not free.
// Holds the matrices of a few thousand nodes at a time. A cancel leaves it unfinished.
MatrixDiagonals matrix_diagonals(const Mesh& mesh, const NodeElements& node_elements,
                                 const NodeNeighbours& neighbours, const ElementMatrices& matrices,
                                 std::span<const std::int32_t> dof_map, int threads, Progress& progress);

}  // namespace kestralum
