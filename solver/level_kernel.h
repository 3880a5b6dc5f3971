// The loops of one multigrid level, its hottest work, built for each vector width. Blocks are column-major;
// vectors hold K columns side by side.
#pragma once

#include <cstdint>

namespace kestralum {

// Tables of a level (solver/multigrid_levels.h); A and P have one value more behind their last block.
struct LevelArrays {
    const std::int64_t* start;  // of A
    const std::int32_t* col;
    const float* A;
    const float* inverse;
    const std::int64_t* p_start;  // of P
    const std::int32_t* p_col;
    const float* P;
    const std::int64_t* list_start;  // P's columns
    const std::int32_t* list_row;
    const std::int64_t* list_entry;
};

// One smoothing step: d = f d + g D⁻¹ (b - A from), to = from + d; from null: zero, f zero: d is not read.
struct SmoothingStep {
    double f, g;
    const double *b, *from;
    double *d, *to;
};

// Each takes the rows first <= i < last of what it writes.
struct LevelKernels {
    void (*smooth)(const LevelArrays& level, const SmoothingStep& step, std::int64_t first,
                   std::int64_t last);
    // r = b - A x
    void (*residual)(const LevelArrays& level, const double* b, const double* x, double* r,
                     std::int64_t first, std::int64_t last);
    // below = Pᵀ r, rows of the level below
    void (*restrict_to)(const LevelArrays& level, const double* r, double* below, std::int64_t first,
                        std::int64_t last);
    // x += P below
    void (*prolong)(const LevelArrays& level, const double* below, double* x, std::int64_t first,
                    std::int64_t last);
    // y = D⁻¹ A x · factor
    void (*scaled_product)(const LevelArrays& level, const double* x, double factor, double* y,
                           std::int64_t first, std::int64_t last);
};

// One build.
struct LevelKernelSet {
    const char* name;
    LevelKernels kernels[2][2];  // blocks of 3, of 6; K = 1, 4

    template <int B, int K>
    const LevelKernels& of() const {
        static_assert((B == 3 || B == 6) && (K == 1 || K == 4));
        return kernels[B == 6][K == 4];
    }
};

// The widest that this processor runs, or with `wide` false the one that every processor does.
const LevelKernelSet& level_kernels(bool wide = true);

namespace kernels {
extern const LevelKernelSet level_base, level_avx2;
}

}  // namespace kestralum
