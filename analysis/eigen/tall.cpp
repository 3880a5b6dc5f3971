#include "analysis/eigen/tall.h"

#include <cblas.h>

#include <algorithm>

#include "solver/panels.h"

namespace kestralum {

namespace {

constexpr std::int32_t block_rows = 2048;

// work(first row, rows, block) for every block; in threads where `products` are enough for them to pay.
template <typename Work>
void for_blocks(std::int32_t n, std::int64_t products, int threads, const Work& work) {
    constexpr std::int64_t least = 100000;
    use_serial_blas();
    const std::int32_t blocks = (n + block_rows - 1) / block_rows;
#pragma omp parallel for schedule(static) num_threads(threads) if (products > least)
    for (std::int32_t b = 0; b < blocks; ++b)
        work(b * block_rows, std::min(block_rows, n - b * block_rows), b);
}

}  // namespace

std::vector<double> tall_inner(std::span<const double> A, std::span<const double> B, std::int32_t n,
                               int threads) {
    const auto a = static_cast<std::int32_t>(A.size()) / n, b = static_cast<std::int32_t>(B.size()) / n;
    const std::size_t size = std::size_t(a) * b, blocks = (n + block_rows - 1) / block_rows;
    std::vector<double> C(size, 0.0), parts(size * blocks);
    if (size == 0) return C;
    for_blocks(n, n * static_cast<std::int64_t>(size), threads,
               [&](std::int32_t row, std::int32_t rows, std::int32_t block) {
                   double* part = parts.data() + std::size_t(block) * size;
                   if (b == 1)
                       cblas_dgemv(CblasColMajor, CblasTrans, rows, a, 1.0, A.data() + row, n, B.data() + row,
                                   1, 0.0, part, 1);
                   else
                       cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, a, b, rows, 1.0, A.data() + row,
                                   n, B.data() + row, n, 0.0, part, a);
               });
    for (std::size_t block = 0; block < blocks; ++block)
        for (std::size_t k = 0; k < size; ++k) C[k] += parts[block * size + k];
    return C;
}

void tall_combine(std::span<const double> A, std::span<const double> S, std::int32_t n, std::int32_t m,
                  std::span<double> X, int threads) {
    const auto k = static_cast<std::int32_t>(S.size()) / m;
    for_blocks(n, n * std::int64_t{m} * k, threads, [&](std::int32_t row, std::int32_t rows, std::int32_t) {
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, rows, k, m, 1.0, A.data() + row, n, S.data(),
                    m, 0.0, X.data() + row, n);
    });
}

void tall_subtract(std::span<const double> A, std::span<const double> c, std::span<double> x, int threads) {
    const auto n = static_cast<std::int32_t>(x.size()), k = static_cast<std::int32_t>(c.size());
    for_blocks(n, n * std::int64_t{k}, threads, [&](std::int32_t row, std::int32_t rows, std::int32_t) {
        cblas_dgemv(CblasColMajor, CblasNoTrans, rows, k, -1.0, A.data() + row, n, c.data(), 1, 1.0,
                    x.data() + row, 1);
    });
}

}  // namespace kestralum
