// Matrices on all degrees of freedom, taken through a constraint map: Tᵀ A T.
#pragma once

#include "conditions/constraint_map.h"
#include "solver/sparse.h"

namespace kestralum {

// km := Tᵀ [K] T and, where M_value is not empty, Tᵀ [M] T, on the pattern that this makes; rows of tied
// nodes become empty. The pattern follows from that of km alone, so that values assembled anew keep their
// places. Same bytes on any number of threads. Ends early, with tables not to be used, where `progress` asks
// to stop.
void transform(const ConstraintMap& map, int threads, SparseKM& km, const Progress& progress);

}  // namespace kestralum
