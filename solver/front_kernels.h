// Dense arithmetic inside one front of a multifrontal L D Lᵀ, column-major, each call on one thread. Pivots
// are 1×1 and 2×2 (Bunch and Kaufman, Math. Comp. 31, 1977), sought inside blocks of pivot_block equations
// only: what a factor loses by that is seen by its residual.
#pragma once

#include <cstdint>

namespace kestralum {

inline constexpr int pivot_block = 48;

// The pivots of some consecutive columns; each table begins at their first.
struct Pivots {
    double* d;  // D's diagonal
    double* e;  // e[i] != 0: columns i and i + 1 are one 2×2 pivot with this entry off its diagonal
    const double* reference;  // size of the equation's entries, to judge a pivot by
    double* share;            // |pivot| over the diagonal entry's size, per equation as it stood before swaps
    const double* diagonal;   // that size
    std::int32_t* order;      // column i is the one that stood at order[i] of the tile

    Pivots from(int i) const { return {d + i, e + i, reference + i, share + i, diagonal + i, order + i}; }
};

struct PivotCount {
    std::int64_t negative = 0;
    std::int64_t replaced =
        0;  // pivots that were nothing but rounding: 1e-15 of the reference stands for them
};

// Factors the diagonal tile a (columns × columns, lower triangle; rows and columns are swapped inside
// blocks), L in its place. `scratch`: columns × pivot_block doubles.
PivotCount factor_tile(double* a, int ld, int columns, const Pivots& pivots, double* scratch);

// x (rows × columns) := x Pᵀ L⁻ᵀ D⁻¹ with the tile `l` and the order of its columns: the rows of L below it.
void divide_rows(int rows, int columns, double* x, int ldx, const double* l, int ld, const Pivots& pivots);

// out (rows × columns, packed) := l D
void multiply_by_d(int rows, int columns, const double* l, int ld, const Pivots& pivots, double* out);

// c (rows × columns) := beta c - a wᵀ over `inner`; `lower` true: the first row of c is its first column's
// diagonal and only the lower trapezoid counts.
struct Product {
    int rows, columns, inner;
    const double* a;
    int lda;
    const double* w;
    int ldw;
};
void subtract_product(const Product& p, bool lower, double beta, double* c, int ldc);

// b := D⁻¹ b for `columns` values.
void divide_by_d(int columns, const Pivots& pivots, double* b);

}  // namespace kestralum
