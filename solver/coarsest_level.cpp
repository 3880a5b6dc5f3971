// The dense level, by LAPACK (Anderson et al., LAPACK Users' Guide, 3rd ed. 1999).
#include <algorithm>
#include <cmath>

#include "solver/multigrid_levels.h"
#include "solver/panels.h"

extern "C" {
void dpotrf_(const char* triangle, const int* n, double* a, const int* lda, int* info, std::size_t);
void dpotrs_(const char* triangle, const int* n, const int* columns, const double* a, const int* lda,
             double* b, const int* ldb, int* info, std::size_t);
}

namespace kestralum {

template <int B>
LevelStatus CoarsestLevel::factor(const LevelMatrix<B>& from) {
    use_serial_blas();
    n_ = from.pattern.rows() * B;
    const std::size_t n = n_;
    L_.assign(n * n, 0.0);
    std::vector<double> buffer;
    for (std::int32_t i = 0; i < from.pattern.rows(); ++i) {
        buffer.resize(from.pattern.count(i) * B * B);
        const double* row = from.load(from.pattern, i, buffer.data());
        for (std::int64_t q = 0; q < from.pattern.count(i); ++q)
            for (int c = 0; c < B; ++c)
                for (int r = 0; r < B; ++r) {
                    const std::size_t column = from.pattern.col[from.pattern.start[i] + q] * B + c;
                    L_[column * n + i * B + r] = row[(q * B + c) * B + r];
                }
    }
    if (!std::all_of(L_.begin(), L_.end(), [](double a) { return std::isfinite(a); }))
        return LevelStatus::not_finite;
    for (std::size_t d = 0; d < n; ++d)
        if (!from.live[d]) L_[d * n + d] = 1.0;
    int info = 0;
    if (n > 0) dpotrf_("L", &n_, L_.data(), &n_, &info, 1);
    return info == 0 ? LevelStatus::ok : LevelStatus::not_positive;
}

void CoarsestLevel::solve(double* x, int k) {
    if (n_ == 0) return;
    const std::size_t n = n_, columns = k;
    columns_.resize(n * columns);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t c = 0; c < columns; ++c) columns_[c * n + i] = x[i * columns + c];
    int info = 0;
    dpotrs_("L", &n_, &k, L_.data(), &n_, columns_.data(), &n_, &info, 1);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t c = 0; c < columns; ++c) x[i * columns + c] = columns_[c * n + i];
}

template LevelStatus CoarsestLevel::factor<3>(const LevelMatrix<3>&);
template LevelStatus CoarsestLevel::factor<motions>(const LevelMatrix<motions>&);

}  // namespace kestralum
