#include "analysis/eigen/lanczos.h"

#include <cblas.h>
#include <jama/jama_eig.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::int32_t printed_steps = 100;  // at least: the steps that the console shows
constexpr std::int32_t guard_modes = 4;
constexpr std::int32_t preliminary_steps = 30;
constexpr int most_restarts = 30;

double dot(const std::vector<double>& a, const std::vector<double>& b) {
    return cblas_ddot(static_cast<int>(a.size()), a.data(), 1, b.data(), 1);
}

// M-orthonormal vectors, kept with their products M v.
class Basis {
public:
    explicit Basis(std::int32_t n) : n_(n) {}
    std::int32_t count() const { return static_cast<std::int32_t>(V_.size() / n_); }
    const double* vector(std::int32_t j) const { return V_.data() + std::size_t(j) * n_; }
    void add(const std::vector<double>& v) { V_.insert(V_.end(), v.begin(), v.end()); }
    void clear() { V_.clear(); }
    const std::vector<double>& all() const { return V_; }

    // w -= V (Vᵀ M w); Mw is M w on entry.
    void remove_from(std::vector<double>& w, const std::vector<double>& Mw) {
        const int k = count();
        if (k == 0) return;
        c_.resize(k);
        cblas_dgemv(CblasColMajor, CblasTrans, n_, k, 1.0, V_.data(), n_, Mw.data(), 1, 0.0, c_.data(), 1);
        cblas_dgemv(CblasColMajor, CblasNoTrans, n_, k, -1.0, V_.data(), n_, c_.data(), 1, 1.0, w.data(), 1);
    }

private:
    std::int32_t n_;
    std::vector<double> V_, c_;
};

struct Ritz {
    double theta, residual;  // |β s| / |θ|
    std::vector<double> s;   // coordinates in the basis
};

// Eigenvalues and vectors of the tridiagonal matrix, ascending in θ, with the residuals that the last
// β gives.
std::vector<Ritz> solve_tridiagonal(const std::vector<double>& alpha, const std::vector<double>& beta,
                                    std::int32_t m) {
    if (m == 0) return {};  // the run found nothing to start from
    TNT::Array2D<double> T(m, m, 0.0);
    for (std::int32_t j = 0; j < m; ++j) {
        T[j][j] = alpha[j];
        if (j + 1 < m) T[j][j + 1] = T[j + 1][j] = beta[j];
    }
    JAMA::Eigenvalue<double> eigen(T);
    TNT::Array1D<double> values;
    TNT::Array2D<double> S;
    eigen.getRealEigenvalues(values);
    eigen.getV(S);
    std::vector<Ritz> out(m);
    for (std::int32_t j = 0; j < m; ++j) {
        Ritz& ritz = out[j];
        ritz.theta = values[j];
        ritz.residual = std::abs(beta[m - 1] * S[m - 1][j]) / std::abs(values[j]);
        ritz.s.resize(m);
        for (std::int32_t i = 0; i < m; ++i) ritz.s[i] = S[i][j];
    }
    return out;
}

// One run of the recurrence, orthogonal to the modes found before.
class Recurrence {
public:
    Recurrence(EigenProblem& problem, Basis& found) : problem_(problem), found_(found), basis_(problem.n()) {}

    // Starts from v (changed). False when nothing of it is left beside what was found.
    bool start(std::vector<double> v) {
        w_ = std::move(v);
        Mw_.resize(w_.size());
        v_.assign(w_.size(), 0.0);
        problem_.multiply_m(w_, Mw_, 1);
        const double size = std::sqrt(std::max(dot(w_, Mw_), 0.0));
        orthogonalise();
        const double left = std::sqrt(std::max(dot(w_, Mw_), 0.0));
        if (!(left > 1e-8 * size)) return false;
        take(left);
        return true;
    }

    // One step: α and β. False with the report's status set when the solve fails.
    bool step() {
        w_ = Mv_;
        if (!problem_.solve(w_, 1)) return false;
        if (!beta_.empty())
            cblas_daxpy(problem_.n(), -beta_.back(), basis_.vector(basis_.count() - 2), 1, w_.data(), 1);
        alpha_.push_back(cblas_ddot(problem_.n(), w_.data(), 1, Mv_.data(), 1));
        cblas_daxpy(problem_.n(), -alpha_.back(), v_.data(), 1, w_.data(), 1);
        problem_.multiply_m(w_, Mw_, 1);
        orthogonalise();
        beta_.push_back(std::sqrt(std::max(dot(w_, Mw_), 0.0)));
        double size = 0;
        for (double a : alpha_) size = std::max(size, std::abs(a));
        if (!std::isfinite(alpha_.back()) || !std::isfinite(beta_.back()))
            return problem_.job().fail(RunStatus::failed, "the Lanczos vectors are not finite");
        exhausted_ = !(beta_.back() > 1e-13 * size) || basis_.count() + found_.count() >= problem_.n();
        if (!exhausted_) take(beta_.back());
        return true;
    }

    bool exhausted() const { return exhausted_; }  // the space is invariant: β is rounding
    std::int32_t steps() const { return static_cast<std::int32_t>(alpha_.size()); }
    const std::vector<double>& alpha() const { return alpha_; }
    const std::vector<double>& beta() const { return beta_; }
    std::vector<Ritz> ritz() const {
        std::vector<double> beta = beta_;
        if (exhausted_ && !beta.empty()) beta.back() = 0;
        return solve_tridiagonal(alpha_, beta, steps());
    }
    // V s
    std::vector<double> vector(const Ritz& ritz) const {
        std::vector<double> x(problem_.n());
        cblas_dgemv(CblasColMajor, CblasNoTrans, problem_.n(), steps(), 1.0, basis_.all().data(),
                    problem_.n(), ritz.s.data(), 1, 0.0, x.data(), 1);
        return x;
    }

private:
    // Twice against everything; Mw_ follows w_.
    void orthogonalise() {
        for (int pass = 0; pass < 2; ++pass) {
            found_.remove_from(w_, Mw_);
            basis_.remove_from(w_, Mw_);
            problem_.multiply_m(w_, Mw_, 1);
        }
    }
    void take(double size) {
        for (double& x : w_) x /= size;
        for (double& x : Mw_) x /= size;
        v_ = w_;
        Mv_ = Mw_;
        basis_.add(v_);
    }

    EigenProblem& problem_;
    Basis& found_;
    Basis basis_;
    std::vector<double> v_, Mv_, w_, Mw_, alpha_, beta_;
    bool exhausted_ = false;
};

// The modes found so far, with their values.
struct Found {
    explicit Found(std::int32_t n) : modes(n) {}
    Basis modes;
    std::vector<double> lambda;

    std::vector<double> sorted() const {
        std::vector<double> values = lambda;
        std::sort(values.begin(), values.end());
        return values;
    }
    std::int64_t below(double limit) const {
        return std::count_if(lambda.begin(), lambda.end(), [&](double l) { return l < limit; });
    }
};

class Lanczos {
public:
    Lanczos(EigenProblem& problem, const EigenOptions& options)
        : problem_(problem), options_(options), found_(problem.n()), random_(19500101) {
        wanted_ = std::min(problem.n(), options.n_mode + guard_modes);
        shown_ = std::max(printed_steps, options.n_mode);
    }

    // A short run with the 0.1 Hz factor, beside the body's rigid motions: the first frequencies.
    bool preliminary(double& reference) {
        Basis rigid(problem_.n());
        std::vector<double> lambda;
        if (!add_rigid_motions(rigid, lambda)) return false;
        Recurrence run(problem_, rigid);
        if (run.start(random_vector())) {
            const std::int32_t steps = std::max(preliminary_steps, 2 * std::min(options_.n_mode, 20));
            while (!run.exhausted() && run.steps() < steps)
                if (!run.step()) return false;
        }
        std::vector<std::pair<double, double>> values;
        for (double l : lambda) values.emplace_back(l, 0.0);
        for (const Ritz& ritz : run.ritz())
            if (ritz.residual < 0.1) values.emplace_back(problem_.sigma() + 1 / ritz.theta, ritz.residual);
        std::sort(values.begin(), values.end());
        std::vector<double> sorted;
        for (std::size_t j = 0; j < values.size(); ++j) {
            sorted.push_back(values[j].first);
            if (j < std::size_t(options_.n_mode))
                problem_.progress().print("n_freq=%lf,[%.5e]\n", frequency_of(values[j].first),
                                          values[j].second);
        }
        reference = reference_frequency(sorted, options_, problem_.rounding());
        return true;
    }

    // The run that the console shows, from the start vector given; goes on until enough has converged.
    bool main_run(std::vector<double> start) {
        problem_.progress().print("Lanczos Start:\n");
        Recurrence run(problem_, found_.modes);
        if (!run.start(std::move(start))) return true;
        const std::int32_t most = std::min(problem_.n(), 4 * shown_);
        std::int32_t next_look = shown_;
        while (!run.exhausted() && run.steps() < most) {
            if (!run.step()) return false;
            const std::int32_t j = run.steps() - 1;
            if (j < shown_) {
                problem_.progress().print("%d: %.3e\n", j, run.alpha().back());
                problem_.progress().print("%d: %.3e, %.3e\n", j, run.alpha().back(), run.beta().back());
            }
            if (run.exhausted())
                note(
                    "the Lanczos vectors span an invariant subspace after %d steps: the recurrence ends "
                    "there",
                    run.steps());
            if (run.steps() == shown_ || (run.exhausted() && run.steps() <= shown_)) print_tridiagonal(run);
            if (run.steps() < next_look) continue;
            next_look += 20;
            if (!problem_.job().goes_on()) return false;
            if (count_converged(run.ritz()) >= wanted_) break;
        }
        problem_.progress().print("Calculate mode_vec from Tmat\n");
        keep_converged(run, wanted_);
        problem_.progress().print("Calculate mode_vec\n");
        return true;
    }

    // Runs that start orthogonal to what was found: from the rigid motions of a free body, then from
    // random vectors until the number below the gap is the number counted there.
    bool complete(SpectrumGap& gap) {
        if (!restart_from_rigid_motions()) return false;
        for (int restart = 0;
             static_cast<std::int32_t>(found_.lambda.size()) < wanted_ && restart < most_restarts; ++restart)
            if (!restart_at_random(wanted_ - static_cast<std::int32_t>(found_.lambda.size()))) return false;
        const std::vector<double> lambda = found_.sorted();
        const auto usable = static_cast<std::int32_t>(lambda.size());
        gap = find_gap(lambda, std::min(options_.n_mode, usable), usable, problem_.rounding(),
                       usable == problem_.n());
        if (gap.below == 0) return true;
        const double sigma = problem_.sigma();
        const std::int64_t counted = problem_.count_below(gap.lambda, gap.slack);
        if (counted == EigenProblem::unsound_count) {
            gap.below = 0;
            return true;
        }
        if (counted < 0) return false;
        RunReport& report = problem_.report();
        if (counted > found_.below(gap.lambda) && !problem_.shift(sigma, true)) return false;
        for (int restart = 0; counted > found_.below(gap.lambda) && restart < most_restarts; ++restart) {
            note(
                "%lld modes are found where %lld are counted: a run orthogonal to the former ones looks for "
                "the others",
                static_cast<long long>(found_.below(gap.lambda)), static_cast<long long>(counted));
            if (!restart_at_random(static_cast<std::int32_t>(counted - found_.below(gap.lambda))))
                return false;
        }
        report.modes_found = found_.below(gap.lambda);
        report.modes_counted = counted;
        report.check_frequency = frequency_of(gap.lambda);
        return true;
    }

    void hand_over(EigenPairs& out) {
        const std::size_t n = problem_.n();
        std::vector<std::size_t> order(found_.lambda.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return found_.lambda[a] < found_.lambda[b]; });
        for (std::size_t j : order) {
            out.lambda.push_back(found_.lambda[j]);
            const double* v = found_.modes.vector(static_cast<std::int32_t>(j));
            out.vectors.insert(out.vectors.end(), v, v + n);
        }
    }

private:
    template <typename... Arguments>
    void note(const char* format, Arguments... arguments) {
        const std::string line = formatted(format, arguments...);
        problem_.job().note(line);
        problem_.progress().notice("%s", line.c_str());
    }

    std::vector<double> random_vector() {
        std::vector<double> v(problem_.n());
        for (double& x : v) x = random_.next();
        return v;
    }

    bool converged(const Ritz& ritz) const {
        return ritz.residual < problem_.job().options.lanczos_tolerance;
    }

    // Converged pairs below the lowest one that is not.
    std::int32_t count_converged(const std::vector<Ritz>& all) const {
        double limit = 1e300;
        for (const Ritz& ritz : all)
            if (!converged(ritz) && ritz.theta > 0)
                limit = std::min(limit, problem_.sigma() + 1 / ritz.theta);
        return static_cast<std::int32_t>(std::count_if(all.begin(), all.end(), [&](const Ritz& ritz) {
            return converged(ritz) && problem_.sigma() + 1 / ritz.theta < limit;
        }));
    }

    // Keeps the lowest `most` converged pairs.
    void keep_converged(const Recurrence& run, std::int32_t most) {
        std::vector<Ritz> all = run.ritz();
        std::erase_if(all, [&](const Ritz& ritz) { return !converged(ritz); });
        std::sort(all.begin(), all.end(),
                  [&](const Ritz& a, const Ritz& b) { return 1 / a.theta < 1 / b.theta; });
        for (std::size_t j = 0; j < all.size() && j < std::size_t(most); ++j) {
            found_.lambda.push_back(problem_.sigma() + 1 / all[j].theta);
            found_.modes.add(run.vector(all[j]));
        }
    }

    // A run for `missing` more modes.
    bool restart(std::vector<double> start, std::int32_t missing) {
        Recurrence run(problem_, found_.modes);
        if (!run.start(std::move(start))) return true;
        const std::int32_t most = std::min(problem_.n(), 2 * shown_);
        std::int32_t next_look = 10;
        while (!run.exhausted() && run.steps() < most) {
            if (!run.step()) return false;
            if (run.steps() < next_look) continue;
            next_look += 10;
            if (!problem_.job().goes_on()) return false;
            if (count_converged(run.ritz()) >= missing) break;
        }
        keep_converged(run, missing);
        return true;
    }

    bool restart_at_random(std::int32_t missing) { return restart(random_vector(), missing); }

    bool restart_from_rigid_motions() {
        const std::size_t n = problem_.n();
        for (std::size_t c = 0; c * n < options_.rigid_motions.size(); ++c) {
            const auto first = options_.rigid_motions.begin() + std::ptrdiff_t(c * n);
            if (!restart({first, first + std::ptrdiff_t(n)}, 1)) return false;
        }
        return true;
    }

    // The rigid motions, M-orthonormal, with their Rayleigh quotients.
    bool add_rigid_motions(Basis& rigid, std::vector<double>& lambda) {
        const std::size_t n = problem_.n();
        std::vector<double> v(n), Mv(n), Kv(n);
        for (std::size_t c = 0; c * n < options_.rigid_motions.size(); ++c) {
            v.assign(options_.rigid_motions.begin() + std::ptrdiff_t(c * n),
                     options_.rigid_motions.begin() + std::ptrdiff_t((c + 1) * n));
            for (int pass = 0; pass < 3; ++pass) {
                problem_.multiply_m(v, Mv, 1);
                const double size = std::sqrt(dot(v, Mv));
                if (!(size > 0)) return true;
                for (std::size_t i = 0; i < n; ++i) {
                    v[i] /= size;
                    Mv[i] /= size;
                }
                if (pass < 2) rigid.remove_from(v, Mv);
            }
            problem_.multiply_k(v, Kv, 1);
            lambda.push_back(dot(v, Kv));
            rigid.add(v);
        }
        return true;
    }

    void print_tridiagonal(const Recurrence& run) {
        const std::int32_t m = run.steps();
        if (m == 0) return;
        problem_.progress().print("Tmat\n");
        if (problem_.progress().lines_wanted()) {
            std::string text;
            for (std::int32_t i = 0; i < m; ++i) {
                for (std::int32_t j = 0; j < m; ++j) {
                    const double t = i == j                 ? run.alpha()[i]
                                     : std::abs(i - j) == 1 ? run.beta()[std::min(i, j)]
                                                            : 0.0;
                    text += formatted("%.3e ", t);
                }
                text += "\n";
            }
            problem_.progress().write(text);
        }
        problem_.progress().print("eig\n");
        std::vector<Ritz> all = run.ritz();
        problem_.progress().print("getV\n");
        problem_.progress().print("getD\n");
        problem_.progress().print("Calculate eigen values and vectors\n");
        problem_.progress().print("Natural Frequency\n");
        for (std::size_t j = 0; j < all.size(); ++j)
            problem_.progress().print("%zu:%e\n", j, frequency_of(problem_.sigma() + 1 / all[j].theta));
    }

    EigenProblem& problem_;
    const EigenOptions& options_;
    Found found_;
    FixedRandom random_;
    std::int32_t wanted_, shown_;
};

}  // namespace

bool lanczos(EigenProblem& problem, const EigenOptions& options, EigenPairs& out, SpectrumGap& gap) {
    std::vector<double> start;
    if (!problem.start_vector_through_w(start)) return false;
    Lanczos method(problem, options);
    double reference = 0;
    if (!method.preliminary(reference)) return false;
    const double shift = reference * options.c_eigen_shift;
    if (shift > 0 || (options.supported && options.c_eigen_shift == 0)) {
        if (!problem.shift(lambda_of(shift), true)) return false;
    } else {
        problem.keep_shift();
    }
    if (!method.main_run(std::move(start)) || !method.complete(gap)) return false;
    method.hand_over(out);
    return true;
}

}  // namespace kestralum
