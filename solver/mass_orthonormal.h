// Blocks of long columns made orthonormal in the inner product of a mass matrix.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "solver/conjugate_gradients.h"
#include "solver/tall_blocks.h"

namespace kestralum {

// y = A x on k columns, n × k one after the other; x and y do not overlap. Any status but ok ends the work
// with it. Looks for a cancel itself.
using BlockOperator =
    std::function<SolveStatus(std::span<const double> x, std::span<double> y, std::int32_t k)>;

struct MassProduct {
    const BlockOperator& multiply_m;  // M, symmetric, positive definite
    std::int64_t n;
    double* room;  // n × the widest block
    TallBlocks& tall;
    bool room_holds_product = false;  // `room` is M W on entry
};

// The w columns of W become M-orthonormal, and M-orthogonal to the `before` columns of B, which are
// M-orthonormal. Columns that depend on others are dropped: w falls, and may be 0. not_positive: M is not;
// bad_input: values that are no numbers; cancelled: the team of `tall` has ended, for whichever reason. May
// throw std::bad_alloc.
SolveStatus orthonormalise(const MassProduct& mass, const double* B, std::int32_t before, double* W,
                           std::int32_t& w);

}  // namespace kestralum
