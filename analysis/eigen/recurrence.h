// Lanczos' recurrence with (K - σM)⁻¹ M in the M inner product, every vector made orthogonal to all former
// ones: one vector a step, or a block of them (Golub and Underwood, in Mathematical Software III, 1977;
// Grimes, Lewis and Simon, SIAM J. Matrix Anal. Appl. 15, 1994), where the projected matrix is a band.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analysis/eigen/basis.h"
#include "analysis/eigen/shifted_pencil.h"

namespace kestralum {

struct Ritz {
    double theta, residual;  // ‖R s‖ / |θ|, R the coupling with the next vectors
    std::vector<double> s;   // coordinates in the basis
};

// Uᵀ T U of the projected matrix T, U orthogonal with e₁ as its first column: what the recurrence with the
// first vector alone gives, as far as the space reaches. Of m vectors: α₁ … α_m, β₁ … β_m, the last the
// coupling with the next ones.
struct Tridiagonal {
    std::vector<double> alpha, beta;
    std::vector<double> U;  // m × m, column after column; empty where T is tridiagonal itself
};

// How many vectors at once: more where the factor stays in no cache.
std::int32_t block_width(ShiftedPencil& problem);

// One run, orthogonal to the vectors found before.
class Recurrence {
public:
    // found: M-orthonormal vectors, copied. room: for so many vectors at first. widest: of the blocks.
    Recurrence(ShiftedPencil& problem, std::span<const double> found, std::int32_t room, std::int32_t widest);

    // Starts from a block of columns. False when nothing of it is left beside what was found, or with the
    // report's status set.
    bool start(std::span<const double> block);
    // One step: a block of vectors more. False with the report's status set when the solve fails.
    bool step();

    bool exhausted() const { return exhausted_; }  // the space is invariant: what is left is rounding
    std::int32_t steps() const { return steps_; }  // vectors that the operator was applied to
    Tridiagonal tridiagonal() const;
    // Eigenpairs of the projected matrix, ascending in θ.
    std::vector<Ritz> ritz() const;
    // V s for each pair: n × pairs. The run is over after it.
    bool vectors(std::span<const Ritz> pairs, std::vector<double>& out);

private:
    // Of the projected matrix: the block's own columns and their coupling with the next block.
    struct Block {
        std::int32_t first, width, next;
        std::vector<double> A;  // width × width, symmetric
        std::vector<double> R;  // next × width
    };
    std::int32_t begin_block(std::int32_t first);
    std::vector<double> last_coupling(std::span<const double> s) const;

    ShiftedPencil& problem_;
    Basis basis_;         // what was found, then the run's vectors
    std::int32_t found_;  // vectors found before
    std::vector<Block> blocks_;
    std::vector<double> MV_, W_;  // M times the last block; room
    std::int32_t steps_ = 0;
    bool exhausted_ = false;
};

}  // namespace kestralum
