// Products of small dense blocks with K columns; blocks column-major, vectors row-major (each row's K values
// side by side).
#pragma once

#include <cstdint>
#include <cstring>

namespace kestralum {

// y += block x: block R × C, x C × K, y R × K
template <int R, int C, int K, typename Value>
inline void add_product(const Value* block, const double* x, double* y) {
    for (int c = 0; c < C; ++c)
        for (int r = 0; r < R; ++r)
            for (int k = 0; k < K; ++k) y[r * K + k] += block[c * R + r] * x[c * K + k];
}

// y += blockᵀ x: block R × C, x R × K, y C × K
template <int R, int C, int K, typename Value>
inline void add_transposed_product(const Value* block, const double* x, double* y) {
    for (int c = 0; c < C; ++c)
        for (int r = 0; r < R; ++r)
            for (int k = 0; k < K; ++k) y[c * K + k] += block[c * R + r] * x[r * K + k];
}

// Two neighbouring values, as every processor of the kind takes them at once.
typedef double TwoDoubles __attribute__((vector_size(16)));
typedef float TwoFloats __attribute__((vector_size(8)));
inline void load_two(const float* from, TwoDoubles& to) {
    TwoFloats v;
    std::memcpy(&v, from, sizeof v);
    to = __builtin_convertvector(v, TwoDoubles);
}

// y = Σ block q · x of its column over `count` blocks: blocks R × C one after the other, x C × K for each
// column, y R × K.
template <int R, int C, int K>
inline void multiply_row(const float* blocks, const std::int32_t* col, std::int64_t count, const double* x,
                         double* y) {
    if constexpr (R == 3 && K == 1) {
        // of rows 0 and 1, and of row 2: of columns 0 3 …, 1 4 … and 2 5 …, three chains of sums side by side
        TwoDoubles upper[3] = {}, a;
        double lower[3] = {};
        for (std::int64_t q = 0; q < count; ++q, blocks += R * C) {
            const double* xq = x + std::int64_t{col[q]} * C;
            for (int c = 0; c < C; ++c) {
                load_two(blocks + c * R, a);
                upper[c % 3] += a * xq[c];
                lower[c % 3] += blocks[c * R + 2] * xq[c];
            }
        }
        const TwoDoubles both = upper[0] + upper[1] + upper[2];
        y[0] = both[0], y[1] = both[1];
        y[2] = lower[0] + lower[1] + lower[2];
    } else {
        double sum[R * K] = {};
        for (std::int64_t q = 0; q < count; ++q, blocks += R * C)
            add_product<R, C, K>(blocks, x + std::int64_t{col[q]} * C * K, sum);
        for (int r = 0; r < R * K; ++r) y[r] = sum[r];
    }
}

}  // namespace kestralum
