// Rows of a factor against right-hand sides that lie interleaved: x(c) is one or two groups of 8 values.
#pragma once

#include <cstdint>

namespace kestralum {

// Row r's entries lie at at[r], from column first[r] on.
struct FactorRows {
    const double* const* at;
    const std::int32_t* first;
};

// `rows` rows from `row` on. Sums run in the order of the columns (rows) whatever the number of rows
// (columns) that a call takes.
struct SolveKernels {
    // x(r) -= Σ_c L(r,c) x(c), c from max(begin, first[r]) to end
    void (*subtract_products)(const FactorRows& L, std::int32_t row, std::int32_t rows, std::int32_t begin,
                              std::int32_t end, double* x);
    // x(c) -= Σ_r L(r,c) x(r) for the same c, r ascending
    void (*subtract_from_columns)(const FactorRows& L, std::int32_t row, std::int32_t rows,
                                  std::int32_t begin, std::int32_t end, double* x);
};

// For x of 8 or 16 values, by the widest instructions of this processor.
const SolveKernels& solve_kernels(std::int32_t values);

namespace solve {
// of 8 values, of 16
extern const SolveKernels base[2], avx2[2], avx512[2];
}  // namespace solve

}  // namespace kestralum
