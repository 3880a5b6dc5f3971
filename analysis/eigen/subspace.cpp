#include "analysis/eigen/subspace.h"

#include <cblas.h>
#include <jama/jama_eig.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "model/format.h"
#include "solver/tall_blocks.h"

namespace kestralum {

namespace {

constexpr std::int32_t spare_vectors = 6;
constexpr std::int32_t most_rounds = 100;
constexpr std::int32_t reshift_round = 5;
constexpr std::int32_t most_guard_rounds = 40;

// A pair whose residual is a thousandth of what a mode of few digits has: the iteration leaves it as it is.
constexpr double settled_residual = 1e-9;

// The projected problem K q = λ M q through the Cholesky factor of M: λ ascending and Q (p × p,
// column after column) with Qᵀ M Q = I. False when the vectors that M comes from are nearly dependent.
bool solve_projected(const TNT::Array2D<double>& K, const TNT::Array2D<double>& M,
                     std::vector<double>& lambda, std::vector<double>& Q) {
    const int p = K.dim1();
    std::vector<double> scale(p);
    TNT::Array2D<double> L(p, p, 0.0), C(p, p);
    for (int i = 0; i < p; ++i) {
        if (!(M[i][i] > 0)) return false;
        scale[i] = 1 / std::sqrt(M[i][i]);
    }
    for (int i = 0; i < p; ++i)
        for (int j = 0; j <= i; ++j) {
            double sum = M[i][j] * scale[i] * scale[j];
            for (int k = 0; k < j; ++k) sum -= L[i][k] * L[j][k];
            if (i == j) {
                if (!(sum > 1e-10)) return false;
                L[i][i] = std::sqrt(sum);
            } else {
                L[i][j] = sum / L[j][j];
            }
        }
    // C = L⁻¹ (S K S) L⁻ᵀ, S the scaling
    for (int j = 0; j < p; ++j)
        for (int i = 0; i < p; ++i) {
            double sum = K[i][j] * scale[i] * scale[j];
            for (int k = 0; k < i; ++k) sum -= L[i][k] * C[k][j];
            C[i][j] = sum / L[i][i];
        }
    for (int i = 0; i < p; ++i)
        for (int j = 0; j < p; ++j) {
            double sum = C[i][j];
            for (int k = 0; k < j; ++k) sum -= C[i][k] * L[j][k];
            C[i][j] = sum / L[j][j];
        }
    for (int i = 0; i < p; ++i)
        for (int j = 0; j < i; ++j) {
            C[i][j] = C[j][i] = 0.5 * (C[i][j] + C[j][i]);
            if (!std::isfinite(C[i][j]) || !std::isfinite(C[i][i])) return false;
        }
    JAMA::Eigenvalue<double> eigen(C);
    TNT::Array1D<double> values;
    TNT::Array2D<double> Z;
    eigen.getRealEigenvalues(values);
    eigen.getV(Z);
    lambda.resize(p);
    Q.resize(p * p);
    for (int c = 0; c < p; ++c) {
        lambda[c] = values[c];
        double* q = &Q[p * c];
        for (int i = p - 1; i >= 0; --i) {  // q = S L⁻ᵀ z
            double sum = Z[i][c];
            for (int k = i + 1; k < p; ++k) sum -= L[k][i] * q[k];
            q[i] = sum / L[i][i];
        }
        for (int i = 0; i < p; ++i) q[i] *= scale[i];
    }
    return true;
}

// X and B = M X for the set, with the room of one round.
class Iteration {
public:
    Iteration(EigenProblem& problem, std::int32_t p)
        : problem_(problem),
          n_(problem.n()),
          p_(p),
          team_(problem.job().threads(), &problem.progress()),
          tall_(n_, p_, team_) {
        X_.resize(std::size_t(n_) * p_);
        B_ = X_;
        Y_ = X_;
        MY_ = X_;
        start();
    }

    std::vector<double>& lambda() { return lambda_; }
    std::vector<double>& X() { return X_; }

    // Y = (K - σM)⁻¹ B, projection on Y, X = Y Q. The lowest columns that have settled are solutions but for
    // a factor.
    bool round() {
        const std::size_t from = std::size_t(n_) * locked_;
        const std::int32_t left = p_ - locked_;
        std::copy(B_.begin() + std::ptrdiff_t(from), B_.end(), Y_.begin() + std::ptrdiff_t(from));
        if (!problem_.solve(std::span(Y_).subspan(from), left)) return false;
        problem_.multiply_m(std::span(Y_).subspan(from), std::span(MY_).subspan(from), left);
        for (std::int32_t j = 0; j < locked_; ++j)
            for (std::size_t i = std::size_t(j) * n_; i < std::size_t(j + 1) * n_; ++i) {
                Y_[i] = X_[i] / (lambda_[j] - problem_.sigma());
                MY_[i] = B_[i] / (lambda_[j] - problem_.sigma());
            }
        const std::vector<double> before = lambda_;
        if (!find_settled()) return false;
        bool projected = false;
        if (!project_on_Y(projected)) return false;
        if (projected) {
            unlock_moved(before);
            return true;
        }
        locked_ = 0;
        orthonormalise();
        if (!project_on_Y(projected)) return false;
        return projected || fail();
    }

    // Projection of K itself on the set as it stands.
    bool project_last() {
        problem_.multiply_k(X_, MY_, p_);
        TNT::Array2D<double> K(p_, p_), M(p_, p_);
        if (!products(X_, MY_, K) || !products(X_, B_, M)) return false;
        Y_.swap(X_);
        MY_.swap(B_);
        bool projected = false;
        return project(K, M, projected) && (projected || fail());
    }

private:
    bool fail() {
        return problem_.job().fail(RunStatus::failed, "the vectors of the subspace iteration are not finite");
    }

    // C = Aᵀ B, symmetrised. False with the report's status set.
    bool products(const std::vector<double>& A, const std::vector<double>& B, TNT::Array2D<double>& C) {
        std::vector<double> c(std::size_t(p_) * p_);
        if (!tall_.gram(A.data(), p_, B.data(), p_, c)) return problem_.outcome(team_);
        for (std::int32_t i = 0; i < p_; ++i)
            for (std::int32_t j = 0; j < p_; ++j)
                C[i][j] = 0.5 * (c[i + std::size_t(p_) * j] + c[j + std::size_t(p_) * i]);
        return true;
    }

    // Locks the lowest columns that the operator leaves as they are, up to a gap in the spectrum: within a
    // cluster the projection may turn them into their neighbours.
    bool find_settled() {
        if (lambda_.empty()) return true;  // the first round
        std::vector<double> sums(2 * std::size_t(p_));
        const double sigma = problem_.sigma();
        const bool went_on = tall_.sum_rows(2 * p_, sums, [&](std::int64_t i, double* sum) {
            for (std::int32_t j = locked_; j < p_; ++j) {
                const std::size_t at = std::size_t(j) * n_ + std::size_t(i);
                const double change = Y_[at] * (lambda_[j] - sigma) - X_[at];
                sum[2 * j] += change * change;
                sum[2 * j + 1] += X_[at] * X_[at];
            }
        });
        if (!went_on) return problem_.outcome(team_);
        while (locked_ < p_ && sums[2 * locked_] < std::pow(settled_residual, 2) * sums[2 * locked_ + 1])
            ++locked_;
        while (locked_ > 0 &&
               (locked_ == p_ || lambda_[locked_] - lambda_[locked_ - 1] < 1e-3 * std::abs(lambda_[locked_])))
            --locked_;
        return true;
    }

    // A locked column whose value moves has another mode come in below or beside it.
    void unlock_moved(const std::vector<double>& before) {
        for (std::int32_t j = 0; j < locked_; ++j)
            if (!(std::abs(lambda_[j] - before[j]) <= 1e-9 * std::abs(before[j]) + problem_.rounding()))
                locked_ = j;
    }

    // (K - σM) Y = B, so that Yᵀ K Y = Yᵀ B + σ Yᵀ M Y. Here and in project(): false with the report's status
    // set; `projected` is false where the vectors of Y are nearly dependent.
    bool project_on_Y(bool& projected) {
        TNT::Array2D<double> K(p_, p_), M(p_, p_);
        if (!products(Y_, B_, K) || !products(Y_, MY_, M)) return false;
        for (int i = 0; i < p_; ++i)
            for (int j = 0; j < p_; ++j) K[i][j] += problem_.sigma() * M[i][j];
        return project(K, M, projected);
    }

    // Makes Y M-orthonormal column by column (Gram-Schmidt, twice), B following it: where a few
    // eigenvalues lie next to the shift - the rigid motions of a free body - all columns come out of
    // the solve nearly parallel to them. A column of which nothing is left becomes a random one.
    void orthonormalise() {
        auto column = [this](std::vector<double>& A, std::int32_t j) {
            return A.data() + std::ptrdiff_t(j) * n_;
        };
        for (std::int32_t j = 0; j < p_; ++j)
            for (int pass = 0; pass < 3; ++pass) {
                double* y = column(Y_, j);
                double* b = column(B_, j);
                const double before = std::sqrt(cblas_ddot(n_, y, 1, column(MY_, j), 1));
                for (std::int32_t i = 0; i < j; ++i) {
                    const double c = -cblas_ddot(n_, column(MY_, i), 1, y, 1);
                    cblas_daxpy(n_, c, column(Y_, i), 1, y, 1);
                    cblas_daxpy(n_, c, column(B_, i), 1, b, 1);
                }
                problem_.multiply_m({y, std::size_t(n_)}, {column(MY_, j), std::size_t(n_)}, 1);
                double left = std::sqrt(std::max(cblas_ddot(n_, y, 1, column(MY_, j), 1), 0.0));
                if (!(left > 1e-12 * before)) {
                    for (std::int32_t i = 0; i < n_; ++i) y[i] = random_.next();
                    problem_.multiply_m({y, std::size_t(n_)}, {column(MY_, j), std::size_t(n_)}, 1);
                    problem_.multiply_k({y, std::size_t(n_)}, {b, std::size_t(n_)}, 1);
                    cblas_daxpy(n_, -problem_.sigma(), column(MY_, j), 1, b, 1);
                    left = std::sqrt(cblas_ddot(n_, y, 1, column(MY_, j), 1));
                }
                for (double* v : {y, b, column(MY_, j)}) cblas_dscal(n_, 1 / left, v, 1);
            }
    }

    // The diagonal of M, unit vectors where k/m is smallest, and random vectors.
    void start() {
        std::vector<std::int32_t> by_ratio(n_);
        std::iota(by_ratio.begin(), by_ratio.end(), 0);
        const auto units = static_cast<std::ptrdiff_t>(p_ / 3);
        std::partial_sort(by_ratio.begin(), by_ratio.begin() + units, by_ratio.end(),
                          [&](std::int32_t a, std::int32_t b) {
                              const double x = problem_.diagonal_k(a) * problem_.diagonal_m(b),
                                           y = problem_.diagonal_k(b) * problem_.diagonal_m(a);
                              return x != y ? x < y : a < b;
                          });
        for (std::int32_t c = 0; c < p_; ++c)
            for (std::int32_t i = 0; i < n_; ++i) {
                double& b = B_[std::size_t(c) * n_ + i];
                if (c == 0)
                    b = problem_.diagonal_m(i);
                else if (c <= units)
                    b = by_ratio[c - 1] == i ? problem_.diagonal_m(i) : 0.0;
                else
                    b = problem_.diagonal_m(i) * random_.next();
            }
    }

    bool project(const TNT::Array2D<double>& K, const TNT::Array2D<double>& M, bool& projected) {
        std::vector<double> Q;
        projected = solve_projected(K, M, lambda_, Q);
        if (!projected) return true;
        // M X = (M Y) Q
        if (!tall_.combine(Y_.data(), p_, Q, p_) || !tall_.combine(MY_.data(), p_, Q, p_))
            return problem_.outcome(team_);
        X_.swap(Y_);
        B_.swap(MY_);
        return true;
    }

    EigenProblem& problem_;
    std::int32_t n_, p_;
    RowTeam team_;
    TallBlocks tall_;
    std::int32_t locked_ = 0;  // columns that have settled, the lowest
    FixedRandom random_{20240117};
    std::vector<double> X_, B_, Y_, MY_, lambda_;
};

// How many of the lowest pairs have settled to a thousandth in their last round.
std::int32_t settled(const std::vector<double>& now, const std::vector<double>& before, double rounding) {
    std::int32_t count = 0;
    while (count < static_cast<std::int32_t>(now.size())) {
        const double a = now[count], b = before[count];
        if (std::abs(a - b) > 1e-3 * std::abs(a) + rounding) break;
        ++count;
    }
    return count;
}

// The second shift, from the frequencies of the round.
bool shift_again(EigenProblem& problem, const EigenOptions& options, std::span<const double> lambda) {
    const double reference = reference_frequency(lambda, options, problem.rounding()) * options.c_eigen_shift;
    if (reference == 0 && !(options.rigid == 0 && options.c_eigen_shift == 0)) {
        problem.keep_shift();
        return true;
    }
    return problem.shift(lambda_of(reference), true);
}

}  // namespace

bool subspace_iteration(EigenProblem& problem, const EigenOptions& options, EigenPairs& out,
                        SpectrumGap& gap) {
    const std::int32_t p = std::min(options.n_mode + spare_vectors, problem.n());
    const std::int32_t shown = std::min(options.n_mode, p);
    Iteration iteration(problem, p);
    std::vector<double> before(p, 0.0);
    std::int32_t k = 0;
    for (;; ++k) {
        problem.job().clock.begin("iterate");
        problem.progress().print("calculate modal K, M\n");
        if (!iteration.round()) return false;
        ++problem.report().rounds;
        problem.progress().set_course(formatted("round %d", static_cast<int>(problem.report().rounds)));
        double convergence = 0;
        for (std::int32_t j = 0; j < shown; ++j) {
            const double f_new = frequency_of(iteration.lambda()[j]), f_old = frequency_of(before[j]);
            const double change = std::abs(f_new - f_old) / f_old;
            problem.progress().print("n_freq=%lf,[%lf]\n", f_new, change);
            // the zero modes of a supported model's loose body are rounding: no measure of convergence
            const bool rounding = std::abs(iteration.lambda()[j]) <= problem.rounding();
            if (j >= options.rigid && !rounding) convergence = std::max(convergence, change);
        }
        problem.progress().print("convergence=%lf\n", convergence);
        if (!problem.job().goes_on()) return false;
        if ((k > reshift_round && convergence < problem.job().options.subspace_tolerance) ||
            k == most_rounds - 1)
            break;
        before = iteration.lambda();
        if (k == reshift_round && !shift_again(problem, options, iteration.lambda())) return false;
    }
    if (k == most_rounds - 1) problem.job().note("the subspace iteration has not converged in 100 rounds");
    // a gap above n_mode needs a guard or two that have settled
    for (int round = 0;; ++round) {
        const std::int32_t usable =
            p == problem.n() ? p : settled(iteration.lambda(), before, problem.rounding());
        gap = find_gap(iteration.lambda(), options.n_mode, usable, problem.rounding(), p == problem.n());
        if (gap.below > 0 || round == most_guard_rounds) break;
        before = iteration.lambda();
        if (!iteration.round()) return false;
        ++problem.report().rounds;
    }
    problem.progress().print("Subspace method completed\n");
    problem.progress().print("calculate modal K, M\n");
    if (!iteration.project_last()) return false;
    out.lambda = iteration.lambda();
    out.vectors = std::move(iteration.X());
    return true;
}

}  // namespace kestralum
