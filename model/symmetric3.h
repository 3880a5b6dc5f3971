// Eigenvalues and eigenvectors of symmetric 3 × 3 matrices.
#pragma once

namespace kestralum {

// a: xx yy zz xy yz zx. values: three, in no particular order; vectors[3·k + c]: component c of the unit
// vector of values[k]. Cyclic Jacobi rotations (Golub and Van Loan, Matrix Computations, 3rd ed. 1996,
// 8.4): accurate for equal and vanishing eigenvalues too, where the closed cosine formula loses half the
// digits. `vectors` may be null.
void symmetric_eigen3(const double* a, double* values, double* vectors);

}  // namespace kestralum
