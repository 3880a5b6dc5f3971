#include "solver/front_kernels.h"

#include <cblas.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace kestralum {

namespace {

// The symmetric block under elimination, both triangles; column k of it at [k * n].
struct SmallBlock {
    double t[pivot_block * pivot_block];
    int n;
    std::int32_t* order;

    double* column(int k) { return t + k * n; }
    void swap(int i, int j) {
        if (i == j) return;
        std::swap(order[i], order[j]);
        for (int c = 0; c < n; ++c) std::swap(t[c * n + i], t[c * n + j]);
        for (int r = 0; r < n; ++r) std::swap(t[i * n + r], t[j * n + r]);
    }
    // Brings the next pivot to k; true where it is a 2×2 one.
    bool choose(int k) {
        const double* x = column(k);
        int top = -1;
        double column_max = 0;
        for (int i = k + 1; i < n; ++i)
            if (std::abs(x[i]) > column_max) column_max = std::abs(x[i]), top = i;
        const double here = std::abs(x[k]);
        // a hundredth in place of Bunch and Kaufman's 0.64: fewer swaps, growth bounded all the same
        if (!(here < 0.01 * column_max)) return false;
        const double alpha = (1 + std::sqrt(17.0)) / 8;
        double row_max = 0;
        for (int i = k; i < n; ++i)
            if (i != top) row_max = std::max(row_max, std::abs(t[top * n + i]));
        if (!(here * row_max < alpha * column_max * column_max)) return false;
        const bool two = std::abs(t[top * n + top]) < alpha * row_max;
        swap(top, two ? k + 1 : k);
        return two;
    }
    void eliminate_one(int k, double d) {
        double* x = column(k);
        for (int c = k + 1; c < n; ++c) {
            const double f = x[c] / d;
            double* y = column(c);
            for (int r = k + 1; r < n; ++r) y[r] -= x[r] * f;
        }
        for (int r = k + 1; r < n; ++r) x[r] /= d;
    }
    void eliminate_two(int k, double d1, double d2, double e) {
        double *x = column(k), *y = column(k + 1);
        const double det = d1 * d2 - e * e;
        for (int c = k + 2; c < n; ++c) {
            const double f = (d2 * x[c] - e * y[c]) / det, g = (d1 * y[c] - e * x[c]) / det;
            double* z = column(c);
            for (int r = k + 2; r < n; ++r) z[r] -= x[r] * f + y[r] * g;
        }
        for (int r = k + 2; r < n; ++r) {
            const double u = x[r], v = y[r];
            x[r] = (d2 * u - e * v) / det;
            y[r] = (d1 * v - e * u) / det;
        }
        x[k + 1] = 0;
    }
};

double over(double value, double reference) {
    return reference > 0 ? value / reference : value > 0;
}

// Eliminates a block of at most pivot_block columns; pivots.order counts from the block's first column.
PivotCount factor_block(double* a, int ld, int n, const Pivots& p) {
    SmallBlock b;
    b.n = n;
    b.order = p.order;
    for (int c = 0; c < n; ++c)
        for (int r = c; r < n; ++r) b.t[r * n + c] = b.t[c * n + r] = a[std::int64_t{c} * ld + r];
    std::iota(p.order, p.order + n, 0);
    PivotCount count;
    for (int k = 0; k < n;) {
        p.e[k] = 0;
        const bool two = b.choose(k);
        const std::int32_t was = p.order[k];
        if (two) {
            const double d1 = b.column(k)[k], d2 = b.column(k + 1)[k + 1], e = b.column(k)[k + 1];
            const double det = d1 * d2 - e * e;
            p.d[k] = d1, p.d[k + 1] = d2, p.e[k] = e, p.e[k + 1] = 0;
            const std::int32_t other = p.order[k + 1];
            p.share[was] = over(std::sqrt(std::abs(det)), p.diagonal[was]);
            p.share[other] = over(std::sqrt(std::abs(det)), p.diagonal[other]);
            count.negative += det < 0 ? 1 : d1 < 0 ? 2 : 0;
            b.eliminate_two(k, d1, d2, e);
            k += 2;
            continue;
        }
        double& d = b.column(k)[k];
        p.share[was] = over(std::abs(d), p.diagonal[was]);
        const double least = 1e-15 * (p.reference[was] > 0 ? p.reference[was] : 1);
        if (std::abs(d) < least) {
            ++count.replaced;
            d = d < 0 ? -least : least;
        }
        count.negative += d < 0;
        p.d[k] = d;
        b.eliminate_one(k, d);
        ++k;
    }
    for (int c = 0; c < n; ++c)
        for (int r = c + 1; r < n; ++r) a[std::int64_t{c} * ld + r] = b.t[c * n + r];
    return count;
}

}  // namespace

PivotCount factor_tile(double* a, int ld, int columns, const Pivots& pivots, double* scratch) {
    PivotCount count;
    for (int j = 0; j < columns; j += pivot_block) {
        const int b = std::min(pivot_block, columns - j), below = columns - j - b;
        double* t = a + std::int64_t{j} * ld + j;
        const Pivots p = pivots.from(j);
        const PivotCount here = factor_block(t, ld, b, p);
        count.negative += here.negative;
        count.replaced += here.replaced;
        double row[pivot_block];
        for (int c = 0; c < j; ++c) {  // the rows of the columns on the left follow the swaps
            double* x = a + std::int64_t{c} * ld + j;
            std::copy(x, x + b, row);
            for (int i = 0; i < b; ++i) x[i] = row[p.order[i]];
        }
        if (below > 0) {
            divide_rows(below, b, t + b, ld, t, ld, p);
            multiply_by_d(below, b, t + b, ld, p, scratch);
            subtract_product({below, below, b, t + b, ld, scratch, below}, true, 1,
                             t + std::int64_t{b} * ld + b, ld);
        }
        for (int i = 0; i < b; ++i) p.order[i] += j;
    }
    return count;
}

void divide_rows(int rows, int columns, double* x, int ldx, const double* l, int ld, const Pivots& pivots) {
    const std::int32_t* order = pivots.order;
    int moved = 0;
    for (int i = 0; i < columns; ++i) moved |= order[i] != i;
    if (moved) {
        double row[256];
        for (int i = 0; i < rows; ++i) {
            for (int c = 0; c < columns; ++c) row[c] = x[i + std::int64_t{order[c]} * ldx];
            for (int c = 0; c < columns; ++c) x[i + std::int64_t{c} * ldx] = row[c];
        }
    }
    cblas_dtrsm(CblasColMajor, CblasRight, CblasLower, CblasTrans, CblasUnit, rows, columns, 1, l, ld, x,
                ldx);
    for (int c = 0; c < columns; ++c) {
        double* a = x + std::int64_t{c} * ldx;
        const double d = pivots.d[c], e = pivots.e[c];
        if (e == 0) {
            const double inverse = 1 / d;
            for (int i = 0; i < rows; ++i) a[i] *= inverse;
            continue;
        }
        const double d2 = pivots.d[c + 1], det = d * d2 - e * e;
        double* b = a + ldx;
        for (int i = 0; i < rows; ++i) {
            const double u = a[i], v = b[i];
            a[i] = (d2 * u - e * v) / det;
            b[i] = (d * v - e * u) / det;
        }
        ++c;
    }
}

void multiply_by_d(int rows, int columns, const double* l, int ld, const Pivots& pivots, double* out) {
    for (int c = 0; c < columns; ++c) {
        const double d = pivots.d[c], up = pivots.e[c], low = c > 0 ? pivots.e[c - 1] : 0;
        const double* a = l + std::int64_t{c} * ld;
        double* o = out + std::int64_t{c} * rows;
        for (int i = 0; i < rows; ++i) o[i] = a[i] * d;
        if (up != 0)
            for (int i = 0; i < rows; ++i) o[i] += a[i + ld] * up;
        if (low != 0)
            for (int i = 0; i < rows; ++i) o[i] += a[i - ld] * low;
    }
}

void subtract_product(const Product& p, bool lower, double beta, double* c, int ldc) {
    const auto multiply = [&](int first, int rows, double* to) {
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasTrans, rows, p.columns, p.inner, -1, p.a + first, p.lda,
                    p.w, p.ldw, beta, to, ldc);
    };
    if (!lower) return multiply(0, p.rows, c);
    if (p.rows > p.columns) multiply(p.columns, p.rows - p.columns, c + p.columns);
    if (p.columns <= pivot_block) return multiply(0, p.columns, c);
    // the square on the diagonal by halves: the part above it is left out
    const int half = (p.columns / 2 + 7) / 8 * 8, rest = p.columns - half;
    subtract_product({p.columns, half, p.inner, p.a, p.lda, p.w, p.ldw}, true, beta, c, ldc);
    subtract_product({rest, rest, p.inner, p.a + half, p.lda, p.w + half, p.ldw}, true, beta,
                     c + half + std::int64_t{half} * ldc, ldc);
}

void divide_by_d(int columns, const Pivots& pivots, double* b) {
    for (int i = 0; i < columns; ++i) {
        const double d = pivots.d[i], e = pivots.e[i];
        if (e == 0) {
            b[i] /= d;
            continue;
        }
        const double d2 = pivots.d[i + 1], det = d * d2 - e * e, u = b[i], v = b[i + 1];
        b[i] = (d2 * u - e * v) / det;
        b[i + 1] = (d * v - e * u) / det;
        ++i;
    }
}

}  // namespace kestralum
