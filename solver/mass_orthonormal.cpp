#include "solver/mass_orthonormal.h"

#include <cblas.h>

#include <cmath>
#include <vector>

#include "solver/dense_eigen.h"

namespace kestralum {

namespace {

// Of a column, and of the squares of a set of unit columns' principal axes: below it is nothing but rounding.
constexpr double nothing_left = 1e-12;

// C -= Aᵀ A, A r × c.
void subtract_square(std::int32_t r, std::int32_t c, const std::vector<double>& A, std::vector<double>& C) {
    if (r > 0 && c > 0)
        cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, c, c, r, -1.0, A.data(), r, A.data(), r, 1.0,
                    C.data(), c);
}

// V with (W V)ᵀ M (W V) = I for the Gram matrix A = Wᵀ M W by its principal axes, scaled (Stathopoulos and
// Wu, SIAM J. Sci. Comput. 23, 2002); those of which nothing is left are dropped. Returns the number kept, -1
// where A is not finite; `sound`: the columns were far enough from dependent for V to make them orthonormal.
std::int32_t orthonormal_combinations(std::int32_t w, std::vector<double>& A, std::vector<double>& V,
                                      bool& sound) {
    std::vector<double> scale(w), values;
    for (std::int32_t j = 0; j < w; ++j) {
        const double square = A[j * std::size_t(w) + j];
        if (!std::isfinite(square)) return -1;
        scale[j] = square > nothing_left * nothing_left ? 1 / std::sqrt(square) : 0.0;
    }
    for (std::int32_t j = 0; j < w; ++j)
        for (std::int32_t i = 0; i < w; ++i) A[j * std::size_t(w) + i] *= scale[i] * scale[j];
    if (!symmetric_eigen(w, A, values)) return -1;
    std::int32_t kept = 0;
    sound = true;
    V.resize(std::size_t(w) * w);
    for (std::int32_t k = 0; k < w; ++k) {
        if (!(values[k] > nothing_left)) continue;
        sound = sound && values[k] > 1e-2;
        for (std::int32_t i = 0; i < w; ++i)
            V[kept * std::size_t(w) + i] = scale[i] * A[k * std::size_t(w) + i] / std::sqrt(values[k]);
        ++kept;
    }
    return kept;
}

SolveStatus multiply(const MassProduct& mass, const double* W, std::int32_t w) {
    const std::size_t size = std::size_t(mass.n) * w;
    return mass.multiply_m({W, size}, {mass.room, size}, w);
}

// W becomes orthogonal to B, its own unit columns: what is left of them after it tells in orthonormalise()
// which were in the span of the others. Columns of zeros are dropped.
SolveStatus normalise_columns(const MassProduct& mass, const double* B, std::int32_t before, double* W,
                              std::int32_t& w) {
    std::vector<double> G(std::size_t(before) * w), square(w);
    const SolveStatus status = mass.room_holds_product ? SolveStatus::ok : multiply(mass, W, w);
    if (status != SolveStatus::ok) return status;
    const double* MW = mass.room;
    const std::int32_t columns = w;
    if (!mass.tall.gram(B, before, MW, w, G) ||
        !mass.tall.sum_rows(w, square, [=, n = mass.n](std::int64_t i, double* sums) {
            for (std::int32_t j = 0; j < columns; ++j) sums[j] += W[j * n + i] * MW[j * n + i];
        }))
        return SolveStatus::cancelled;
    std::vector<double> V(std::size_t(w) * w, 0.0);
    std::int32_t kept = 0;
    for (std::int32_t j = 0; j < w; ++j) {
        if (!std::isfinite(square[j])) return SolveStatus::bad_input;
        if (square[j] < 0) return SolveStatus::not_positive;
        if (square[j] > 0) V[kept++ * std::size_t(w) + j] = 1 / std::sqrt(square[j]);
    }
    if (!mass.tall.project(B, before, G, W, w, V, kept)) return SolveStatus::cancelled;
    w = kept;
    return SolveStatus::ok;
}

}  // namespace

SolveStatus orthonormalise(const MassProduct& mass, const double* B, std::int32_t before, double* W,
                           std::int32_t& w) {
    if (w == 0) return SolveStatus::ok;
    if (const SolveStatus status = normalise_columns(mass, B, before, W, w); status != SolveStatus::ok)
        return status;
    std::vector<double> G, A, V;
    bool sound = false;
    for (int pass = 0; pass < 5 && w > 0 && !sound; ++pass) {
        G.assign(std::size_t(before) * w, 0.0);
        A.assign(std::size_t(w) * w, 0.0);
        if (const SolveStatus status = multiply(mass, W, w); status != SolveStatus::ok) return status;
        if (!mass.tall.gram(B, before, mass.room, w, G) || !mass.tall.gram(W, w, mass.room, w, A))
            return SolveStatus::cancelled;
        subtract_square(before, w, G, A);
        const std::int32_t kept = orthonormal_combinations(w, A, V, sound);
        if (kept < 0) return SolveStatus::bad_input;
        if (!mass.tall.project(B, before, G, W, w, V, kept)) return SolveStatus::cancelled;
        w = kept;
    }
    return SolveStatus::ok;
}

}  // namespace kestralum
