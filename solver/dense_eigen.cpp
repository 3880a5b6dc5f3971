#include "solver/dense_eigen.h"

#include <algorithm>
#include <cmath>

extern "C" void dsyev_(const char* vectors, const char* triangle, const int* n, double* a, const int* lda,
                       double* values, double* work, const int* lwork, int* info, std::size_t, std::size_t);

namespace kestralum {

bool symmetric_eigen(int n, std::span<double> a, std::span<double> values, std::span<double> work,
                     bool vectors) {
    if (!std::all_of(a.begin(), a.end(), [](double x) { return std::isfinite(x); })) return false;
    const int lwork = static_cast<int>(work.size());
    int info = 0;
    dsyev_(vectors ? "V" : "N", "L", &n, a.data(), &n, values.data(), work.data(), &lwork, &info, 1, 1);
    return info == 0;
}

bool symmetric_eigen(int n, std::span<double> a, std::vector<double>& values) {
    values.assign(n, 0.0);
    std::vector<double> work(64 * std::size_t(n));
    return n == 0 || symmetric_eigen(n, a.first(std::size_t(n) * std::size_t(n)), values, work, true);
}

}  // namespace kestralum
