// Products of small dense blocks with K columns; blocks column-major, vectors row-major (each row's K values
// side by side).
#pragma once

namespace kestralum {

// y += block x: block R × C, x C × K, y R × K
template <int R, int C, int K, typename Value>
inline void add_product(const Value* block, const double* x, double* y) {
    for (int c = 0; c < C; ++c)
        for (int r = 0; r < R; ++r)
            for (int k = 0; k < K; ++k) y[r * K + k] += block[c * R + r] * x[c * K + k];
}

// Two neighbouring values, as every processor of the kind takes them at once.
typedef double TwoDoubles __attribute__((vector_size(16)));

}  // namespace kestralum
