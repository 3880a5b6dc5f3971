// Factors of small dense matrices with row exchanges, from OpenBLAS' LAPACK (Anderson et al., LAPACK Users'
// Guide, 3rd ed. 1999). Matrices are column-major; info > 0: a pivot of dgetrf_ is zero.
#pragma once

#include <cstddef>

extern "C" {
void dgetrf_(const int* m, const int* n, double* a, const int* lda, int* pivots, int* info);
void dgetrs_(const char* trans, const int* n, const int* columns, const double* a, const int* lda,
             const int* pivots, double* b, const int* ldb, int* info, std::size_t);
}
