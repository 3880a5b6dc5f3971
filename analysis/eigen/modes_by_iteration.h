// The lowest modes without a factor: LOBPCG with multigrid, for parts whose factor is too large.
#pragma once

#include "analysis/eigen/eigen_problem.h"
#include "system/iterative_factor.h"

namespace kestralum {

// Fills `pairs` with options.n_mode modes, the rigid motions of a free body among them. Nothing counts the
// modes: a note says so. False with the report's status set on a cancel or without memory; false with status
// done where the iteration cannot do it (rigid bodies, several loose ones, a stall): `levels` has given way
// to its direct factor then.
bool modes_by_iteration(EigenProblem& problem, const AssembledSystem& system, const EigenOptions& options,
                        IterativeFactor& levels, EigenPairs& pairs);

}  // namespace kestralum
