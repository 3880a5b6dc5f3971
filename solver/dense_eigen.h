// Eigenvalues of small dense symmetric matrices, by LAPACK (Anderson et al., LAPACK Users' Guide, 3rd ed.
// 1999).
#pragma once

#include <span>
#include <vector>

namespace kestralum {

// Eigenvalues of the symmetric n × n matrix `a`, ascending into `values`; with `vectors` a becomes the matrix
// of unit eigenvectors, column after column. `work`: at least 3n - 1, room. Takes no memory of its own. False
// where `a` is not finite (a is then unchanged) or the iteration does not end.
bool symmetric_eigen(int n, std::span<double> a, std::span<double> values, std::span<double> work,
                     bool vectors);

// Of the first n² entries of `a`, which become the eigenvectors, with room of its own. Throws std::bad_alloc.
bool symmetric_eigen(int n, std::span<double> a, std::vector<double>& values);

// Uᵀ A U = T tridiagonal for the symmetric n × n matrix `a`, lower triangle, which becomes the orthogonal U,
// column after column; its first column is e₁. alpha: n, the diagonal; beta: n - 1, not negative.
void tridiagonalise(int n, std::span<double> a, std::vector<double>& alpha, std::vector<double>& beta);

}  // namespace kestralum
