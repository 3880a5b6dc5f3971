#include "analysis/eigen/basis.h"

#include "analysis/eigen/tall.h"

namespace kestralum {

double Basis::remove_from(std::span<double> w, std::span<const double> Mw) const {
    if (count() == 0) return 0;
    const std::vector<double> c = tall_inner(V_, Mw, n_, threads_);
    tall_subtract(V_, c, w, threads_);
    double square = 0;
    for (double x : c) square += x * x;
    return square;
}

std::vector<double> Basis::combine(std::span<const double> S, std::int32_t k) const {
    std::vector<double> X(std::size_t(k) * n_);
    if (k == 0) return X;
    tall_combine(V_, S, n_, static_cast<std::int32_t>(S.size()) / k, X, threads_);
    return X;
}

}  // namespace kestralum
