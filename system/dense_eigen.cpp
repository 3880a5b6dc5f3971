#include "system/dense_eigen.h"

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

}  // namespace kestralum
