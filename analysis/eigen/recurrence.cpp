#include "analysis/eigen/recurrence.h"

#include <cblas.h>
#include <jama/jama_eig.h>

#include <algorithm>
#include <cmath>

namespace kestralum {

Recurrence::Recurrence(EigenProblem& problem, Basis& found, std::int32_t room)
    : problem_(problem), found_(found), basis_(problem.n(), problem.job().threads()) {
    basis_.reserve(std::min(room, problem.n()));
}

bool Recurrence::start(std::vector<double> v) {
    w_ = std::move(v);
    Mw_.resize(w_.size());
    v_.assign(w_.size(), 0.0);
    problem_.multiply_m(w_, Mw_, 1);
    const double size = size_of_w(), left = orthogonalise();
    if (!(left > 1e-8 * size)) return false;
    take(left);
    return true;
}

bool Recurrence::step() {
    const std::int32_t n = problem_.n();
    w_ = Mv_;
    if (!problem_.solve(w_, 1)) return false;
    if (!beta_.empty()) cblas_daxpy(n, -beta_.back(), basis_.vector(basis_.count() - 2), 1, w_.data(), 1);
    alpha_.push_back(cblas_ddot(n, w_.data(), 1, Mv_.data(), 1));
    cblas_daxpy(n, -alpha_.back(), v_.data(), 1, w_.data(), 1);
    problem_.multiply_m(w_, Mw_, 1);
    beta_.push_back(orthogonalise());
    double size = 0;
    for (double a : alpha_) size = std::max(size, std::abs(a));
    if (!std::isfinite(alpha_.back()) || !std::isfinite(beta_.back()))
        return problem_.job().fail(RunStatus::failed, "the Lanczos vectors are not finite");
    exhausted_ = !(beta_.back() > 1e-13 * size) || basis_.count() + found_.count() >= n;
    if (!exhausted_) take(beta_.back());
    return true;
}

std::vector<Ritz> Recurrence::ritz() const {
    const std::int32_t m = steps();
    if (m == 0) return {};  // the run found nothing to start from
    TNT::Array2D<double> T(m, m, 0.0);
    for (std::int32_t j = 0; j < m; ++j) {
        T[j][j] = alpha_[j];
        if (j + 1 < m) T[j][j + 1] = T[j + 1][j] = beta_[j];
    }
    JAMA::Eigenvalue<double> eigen(T);
    TNT::Array1D<double> values;
    TNT::Array2D<double> S;
    eigen.getRealEigenvalues(values);
    eigen.getV(S);
    const double last = exhausted_ ? 0 : beta_[m - 1];
    std::vector<Ritz> out(m);
    for (std::int32_t j = 0; j < m; ++j) {
        Ritz& ritz = out[j];
        ritz.theta = values[j];
        ritz.residual = std::abs(last * S[m - 1][j]) / std::abs(values[j]);
        ritz.s.resize(m);
        for (std::int32_t i = 0; i < m; ++i) ritz.s[i] = S[i][j];
    }
    return out;
}

std::vector<double> Recurrence::vectors(std::span<const Ritz> pairs) const {
    std::vector<double> S;
    for (const Ritz& ritz : pairs) S.insert(S.end(), ritz.s.begin(), ritz.s.end());
    return basis_.combine(S, static_cast<std::int32_t>(pairs.size()));
}

double Recurrence::size_of_w() const {
    return std::sqrt(std::max(cblas_ddot(problem_.n(), w_.data(), 1, Mw_.data(), 1), 0.0));
}

// w against everything, a second time where less than 1/√2 of it is left (Daniel, Gragg, Kaufman and Stewart,
// Math. Comp. 30, 1976); returns its size. Mw_, M w on entry, follows it but for rounding.
double Recurrence::orthogonalise() {
    constexpr double rounding = 1e-13;
    double size = size_of_w();
    for (int pass = 0; pass < 2; ++pass) {
        const double before = size;
        const double removed = std::sqrt(found_.remove_from(w_, Mw_) + basis_.remove_from(w_, Mw_));
        if (removed <= rounding * before) break;
        problem_.multiply_m(w_, Mw_, 1);
        size = size_of_w();
        if (size * std::sqrt(2.0) >= before) break;
    }
    return size;
}

void Recurrence::take(double size) {
    for (double& x : w_) x /= size;
    for (double& x : Mw_) x /= size;
    v_ = w_;
    Mv_ = Mw_;
    basis_.add(v_);
}

}  // namespace kestralum
