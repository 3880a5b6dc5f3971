// Preconditioned conjugate gradients (Hestenes and Stiefel, 1952).
#pragma once

#include <functional>
#include <span>

#include "solver/row_team.h"

namespace kestralum {

enum class SolveStatus {
    ok,
    stalled,       // the residual no longer falls, or falls too slowly
    not_positive,  // the matrix is not positive definite, or singular
    bad_input,     // sizes that do not fit, values that are no numbers
    out_of_memory,
    cancelled
};

struct IterationLimits {
    double tolerance = 1e-10;  // ‖b - A x‖ / ‖b‖
    int iterations = 1000;
    int patience = 100;  // iterations in which the residual must halve
};

// y = operator(x), on vectors of the same length. They stop early when the team does.
using LinearOperator = std::function<void(std::span<const double> x, std::span<double> y)>;

struct PositiveSystem {
    LinearOperator multiply;           // A
    LinearOperator multiply_absolute;  // |A| |x|, entry by entry
    LinearOperator precondition;       // about A⁻¹; symmetric, positive definite where A is
};

struct IterationResult {
    SolveStatus status = SolveStatus::ok;
    int iterations = 0;
    double residual = 0;  // ‖b - A x‖ / ‖b‖ of the x returned, computed from it
    bool rounded = false;  // ok above the tolerance: no larger than ε ‖ |A| |x| ‖ / ‖b‖, what rounding leaves
};

// Solves A x = b from x = 0: x is b on entry. Vectors are taken through the team, whose end is the status.
// The residual that is carried along says when to look; the one computed from x decides, and is what goes on
// from where it has not come down as far. May throw std::bad_alloc.
IterationResult conjugate_gradients(const PositiveSystem& system, RowTeam& team, std::span<double> x,
                                    const IterationLimits& limits);

}  // namespace kestralum
