// Second-order tensors by rows, and the symmetric ones as the program stores them: xx yy zz xy yz zx.
#pragma once

#include <array>
#include <cmath>

namespace kestralum::testing {

using Tensor = std::array<double, 9>;

inline Tensor product(const Tensor& a, const Tensor& b) {
    Tensor c{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
    return c;
}

inline void apply(const Tensor& a, const double* x, double* y) {
    for (int i = 0; i < 3; ++i) y[i] = a[3 * i] * x[0] + a[3 * i + 1] * x[1] + a[3 * i + 2] * x[2];
}

inline Tensor full(const double* s) {
    return {s[0], s[3], s[5], s[3], s[1], s[4], s[5], s[4], s[2]};
}

// R S Rᵀ.
inline Tensor turned(const Tensor& R, const double* s) {
    Tensor Rt;
    for (int k = 0; k < 9; ++k) Rt[k] = R[3 * (k % 3) + k / 3];
    return product(product(R, full(s)), Rt);
}

// Rotation about the skew axis (2, -1, 2)/3 (Rodrigues).
inline Tensor rotation(double angle) {
    const double n[3] = {2.0 / 3, -1.0 / 3, 2.0 / 3}, c = std::cos(angle), s = std::sin(angle);
    Tensor R;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) R[3 * i + j] = (1 - c) * n[i] * n[j] + (i == j ? c : 0);
    for (int i = 0; i < 3; ++i) {
        R[3 * i + (i + 1) % 3] -= s * n[(i + 2) % 3];
        R[3 * i + (i + 2) % 3] += s * n[(i + 1) % 3];
    }
    return R;
}

}  // namespace kestralum::testing
