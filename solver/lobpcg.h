// The lowest modes of K φ = λ M φ by locally optimal block preconditioned conjugate gradients (Knyazev, SIAM
// J. Sci. Comput. 23, 2001): for systems whose factor fits in no memory. Beside the products with K and M it
// needs no more than a preconditioner, and memory for four blocks of vectors and the modes.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "model/progress.h"
#include "solver/conjugate_gradients.h"
#include "solver/mass_orthonormal.h"

namespace kestralum {

// x := T x on k columns, as BlockOperator.
using BlockInverse = std::function<SolveStatus(std::span<double> x, std::int32_t k)>;

struct LobpcgProblem {
    std::int32_t n = 0;
    BlockOperator multiply_k;  // K, symmetric, positive definite on what is M-orthogonal to null_space
    BlockOperator multiply_m;  // M, symmetric, positive definite
    BlockInverse precondition;  // about K⁻¹, symmetric, positive definite; of a free body about (K + σM)⁻¹
    // n × any number: modes are sought M-orthogonal to these vectors, such as the rigid motions of a free
    // body. They need not be independent.
    std::span<const double> null_space = {};
};

struct LobpcgOptions {
    std::int32_t n_mode = 1;
    std::int32_t guards = -1;  // further columns of the block; below 0: n_mode / 3, from 4 to 12
    // Of the block: where modes and guards are more, the lowest ones are left as they are once found, and
    // others come into their place.
    std::int32_t most_columns = 64;
    double tolerance = 1e-7;  // ‖Kφ - λMφ‖ / ‖(K + λ₁M)φ‖ of every mode
    int most_iterations = 500;
    int patience = 60;  // iterations in which the modes that are left must come nearer, see LobpcgResult
    int threads = 1;
    // Called after each iteration with its number and that of the modes within the tolerance; may be empty.
    std::function<void(int iteration, std::int32_t converged)> each = nullptr;
};

struct LobpcgResult {
    // stalled: most_iterations are over, or for `patience` iterations the residuals have not halved; they
    // tell how good the modes are. not_positive: K or M is not positive definite. bad_input: sizes that do
    // not fit, values that are no numbers, fewer equations than modes.
    SolveStatus status = SolveStatus::ok;
    bool rounded = false;  // ok with residuals above the tolerance, as small as rounding lets them be
    int iterations = 0;
    std::int64_t preconditioned = 0;  // columns
    // Of ok all modes, of stalled no more than there were columns for; else empty:
    std::vector<double> lambda;    // modes, ascending: Rayleigh quotients of the vectors
    std::vector<double> vectors;   // n × modes, M-orthonormal
    std::vector<double> residual;  // modes, as the tolerance
};

// The block starts from fixed pseudo-random vectors. Multiple modes come as often as they are. The result is
// the same to the last bit for any number of threads where the operators' are. Throws nothing.
LobpcgResult lobpcg(const LobpcgProblem& problem, const LobpcgOptions& options,
                    const Progress* progress = nullptr);

}  // namespace kestralum
