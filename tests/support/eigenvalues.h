// Eigenvalues of small symmetric matrices.
#pragma once

#include <jama/jama_eig.h>

namespace kestralum::testing {

// Of the symmetric part of an n × n matrix, ascending.
inline TNT::Array1D<double> eigenvalues(const double* matrix, int n) {
    TNT::Array2D<double> symmetric(n, n);
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) symmetric[r][c] = 0.5 * (matrix[n * r + c] + matrix[n * c + r]);
    JAMA::Eigenvalue<double> eigen(symmetric);
    TNT::Array1D<double> values;
    eigen.getRealEigenvalues(values);
    return values;
}

}  // namespace kestralum::testing
