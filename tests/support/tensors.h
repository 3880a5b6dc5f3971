// Second-order tensors by rows, and the symmetric ones as the program stores them: xx yy zz xy yz zx.
#pragma once

#include <algorithm>

#include "conditions/rigid_bodies.h"

namespace kestralum::testing {

using Tensor = Mat3;

inline void apply(const Tensor& a, const double* x, double* y) {
    std::ranges::copy(kestralum::turned(a, {x[0], x[1], x[2]}), y);
}

inline Tensor full(const double* s) {
    return {s[0], s[3], s[5], s[3], s[1], s[4], s[5], s[4], s[2]};
}

// R S Rᵀ.
inline Tensor turned(const Tensor& R, const double* s) {
    return multiply3(multiply3(R, full(s)), transposed(R));
}

// About the skew axis (2, -1, 2)/3.
inline Tensor rotation(double angle) {
    return rotation_of(times(angle / 3, {2, -1, 2}));
}

}  // namespace kestralum::testing
