// Lanczos' method for K φ = λ M φ with the operator Wᵀ (K - σM)⁻¹ W (Ericsson and Ruhe, 1980), run in
// the M inner product: with v = W⁻ᵀ q the recurrence has the same coefficients α and β, and its
// vectors are the modes' own.
#pragma once

#include "analysis/eigen/eigen_problem.h"

namespace kestralum {

// Finds the lowest n_mode modes and a few above them, checks their number against the pivots of a
// shifted matrix, and starts again, orthogonal to what was found, while copies of multiple modes are
// missing. The problem comes with the 0.1 Hz shift in force. All converged pairs come back,
// ascending; `gap` is where the number was checked (the report holds the outcome), below = 0 when no
// gap was found. False with the report's status set.
bool lanczos(EigenProblem& problem, const EigenOptions& options, EigenPairs& out, SpectrumGap& gap);

}  // namespace kestralum
