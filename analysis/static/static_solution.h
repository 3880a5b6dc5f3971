// K u = F with its checks: what the static analysis and those that begin with a static state solve.
#pragma once

#include <vector>

#include "system/assembly.h"

namespace kestralum {

// Factors K and solves for `columns` right-hand sides. q: F in, displacements out, one value per equation,
// one column after the other; where the residual is above 1e-9 with one step of refinement. report: residual,
// negative pivots. False with the status set where nothing came of it; true with the status failed where the
// numbers are there but nothing holds a node or a rigid element.
bool solve_static(Job& job, const AssembledSystem& system, std::vector<double>& q, std::size_t columns,
                  BorderedFactor& factor);

}  // namespace kestralum
