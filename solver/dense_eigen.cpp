#include "solver/dense_eigen.h"

#include <algorithm>
#include <cmath>

extern "C" void dsyev_(const char* vectors, const char* triangle, const int* n, double* a, const int* lda,
                       double* values, double* work, const int* lwork, int* info, std::size_t, std::size_t);
extern "C" void dsytrd_(const char* triangle, const int* n, double* a, const int* lda, double* alpha,
                        double* beta, double* tau, double* work, const int* lwork, int* info, std::size_t);
extern "C" void dorgtr_(const char* triangle, const int* n, double* a, const int* lda, const double* tau,
                        double* work, const int* lwork, int* info, std::size_t);

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

void tridiagonalise(int n, std::span<double> a, std::vector<double>& alpha, std::vector<double>& beta) {
    const std::size_t m = n;
    std::vector<double> tau(m), work(64 * m);
    alpha.assign(m, 0.0);
    beta.assign(m, 0.0);
    if (n == 0) return;
    const int lwork = static_cast<int>(work.size());
    int info = 0;
    dsytrd_("L", &n, a.data(), &n, alpha.data(), beta.data(), tau.data(), work.data(), &lwork, &info, 1);
    dorgtr_("L", &n, a.data(), &n, tau.data(), work.data(), &lwork, &info, 1);
    beta.resize(m - 1);
    double sign = 1;
    for (std::size_t j = 1; j < m; ++j) {  // of column j, so that β_j = u_jᵀ A u_j-1 is not negative
        if (beta[j - 1] < 0) sign = -sign;
        beta[j - 1] = std::abs(beta[j - 1]);
        for (std::size_t i = 0; i < m; ++i) a[j * m + i] *= sign;
    }
}

}  // namespace kestralum
