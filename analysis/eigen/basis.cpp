#include "analysis/eigen/basis.h"

#include <cblas.h>

#include <algorithm>

#include "solver/panels.h"

namespace kestralum {

namespace {

constexpr std::int32_t block_rows = 2048;
constexpr std::int64_t least_work = 100000;  // products for which threads pay

}  // namespace

Basis::Basis(std::int32_t n, int threads) : n_(n), threads_(threads) {
    use_serial_blas();
}

std::int32_t Basis::blocks() const {
    return (n_ + block_rows - 1) / block_rows;
}

double Basis::remove_from(std::span<double> w, std::span<const double> Mw) {
    const std::int32_t k = count(), many = blocks();
    const bool large = n_ * std::int64_t{k} > least_work;
    if (k == 0) return 0;
    parts_.resize(std::size_t(k) * many);
    c_.assign(k, 0.0);
#pragma omp parallel for schedule(static) num_threads(threads_) if (large)
    for (std::int32_t b = 0; b < many; ++b) {
        const std::int32_t row = b * block_rows, rows = std::min(block_rows, n_ - row);
        cblas_dgemv(CblasColMajor, CblasTrans, rows, k, 1.0, V_.data() + row, n_, Mw.data() + row, 1, 0.0,
                    parts_.data() + std::size_t(b) * k, 1);
    }
    double square = 0;
    for (std::int32_t j = 0; j < k; ++j) {
        for (std::int32_t b = 0; b < many; ++b) c_[j] += parts_[std::size_t(b) * k + j];
        square += c_[j] * c_[j];
    }
#pragma omp parallel for schedule(static) num_threads(threads_) if (large)
    for (std::int32_t b = 0; b < many; ++b) {
        const std::int32_t row = b * block_rows, rows = std::min(block_rows, n_ - row);
        cblas_dgemv(CblasColMajor, CblasNoTrans, rows, k, -1.0, V_.data() + row, n_, c_.data(), 1, 1.0,
                    w.data() + row, 1);
    }
    return square;
}

std::vector<double> Basis::combine(std::span<const double> S, std::int32_t k) const {
    std::vector<double> X(std::size_t(k) * n_);
    if (k == 0) return X;
    const auto m = static_cast<std::int32_t>(S.size()) / k;
    const std::int32_t many = blocks();
    const bool large = n_ * std::int64_t{k} * m > least_work;
#pragma omp parallel for schedule(static) num_threads(threads_) if (large)
    for (std::int32_t b = 0; b < many; ++b) {
        const std::int32_t row = b * block_rows, rows = std::min(block_rows, n_ - row);
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, rows, k, m, 1.0, V_.data() + row, n_, S.data(),
                    m, 0.0, X.data() + row, n_);
    }
    return X;
}

}  // namespace kestralum
