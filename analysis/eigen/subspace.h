// Subspace iteration (Bathe and Wilson, 1972; Bathe, Finite Element Procedures, 1996, 11.6).
#pragma once

#include "analysis/eigen/eigen_problem.h"

namespace kestralum {

// Iterates on n_mode + 6 vectors (at most n) with the problem's shift in force, shifts again at the
// sixth round and leaves all of the set's pairs, ascending, in `out`. The lines are those of the
// console; `gap` is a shift clear of the spectrum above n_mode, below = 0 when none was found.
// False with the report's status set.
bool subspace_iteration(EigenProblem& problem, const EigenOptions& options, EigenPairs& out,
                        SpectrumGap& gap);

}  // namespace kestralum
