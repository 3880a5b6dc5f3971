// The diagonals of [K] and [M] and their sums, without the matrices: what an explicit analysis takes from
// them.
#pragma once

#include <span>
#include <vector>

#include "elements/elasticity.h"
#include "model/mesh.h"

namespace kestralum {

struct MatrixDiagonals {
    std::vector<double> K, M;  // per degree of freedom of the mesh: N/m, kg
    double mass_sum = 0;       // of all entries of [M]: three times the total mass, kg
    double stiffness_sum = 0;  // of the entries of [K] between free degrees of freedom
    std::int32_t bad_element =
        -1;  // the first (0-based) that could not be computed; the rest is then unfinished
};

struct PartMaterial {
    IsotropicModuli D;  // N/m^2
    double density;     // kg/m^3
};

// Sums the fully integrated elements' diagonals at the nodes, element by element in the mesh's order, so that
// the bits are the same for any number of threads. `of_part`: per part of the mesh. `dof_map`: -1 = not free.
// An element whose degrees of freedom are all free moves without force where all go by the same: only the
// others enter the sum of stiffnesses. A cancel leaves it unfinished.
MatrixDiagonals matrix_diagonals(const Mesh& mesh, std::span<const PartMaterial> of_part,
                                 std::span<const std::int32_t> dof_map, int threads, Progress& progress);

}  // namespace kestralum
