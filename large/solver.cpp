#include "large/solver.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "model/format.h"
#include "solver/dense_eigen.h"
#include "solver/lapack_lu.h"

namespace kestralum {

namespace {

constexpr int most_iterations = 2000;
constexpr int patience = 300;  // iterations in which the residual does not fall to half

// What one iteration of conjugate gradients looks at beside the residual.
struct Watch {
    const Team& team;
    Job& job;
    double goal;  // of the residual
    int iterations = 0;
    double best = 0;  // residual
    int best_at = 0;
};

// A request to stop counts on all ranks at once.
PetscErrorCode test_convergence(KSP, PetscInt iteration, PetscReal residual, KSPConvergedReason* reason,
                                void* context) {
    auto& watch = *static_cast<Watch*>(context);
    *reason = KSP_CONVERGED_ITERATING;
    watch.job.progress.print("CG %d: %.3e\n", watch.iterations, residual);
    watch.job.progress.set_count(watch.iterations, most_iterations);
    if (iteration == 0 || residual <= 0.5 * watch.best) {
        watch.best = residual;
        watch.best_at = iteration;
    }
    if (watch.team.any(watch.job.progress.cancelled())) {
        watch.job.progress.cancel();
        *reason = KSP_DIVERGED_NULL;
    } else if (residual <= watch.goal) {
        *reason = KSP_CONVERGED_ATOL;
    } else if (watch.iterations >= most_iterations || iteration - watch.best_at >= patience ||
               !std::isfinite(residual)) {
        *reason = KSP_DIVERGED_ITS;
    } else {
        ++watch.iterations;
    }
    return 0;
}

}  // namespace

LargeSolver::LargeSolver(const Team& team, Job& job, LargeMethod method, double tolerance)
    : team_(team), job_(job), method_(method), tolerance_(tolerance) {}

bool LargeSolver::set_up(Mat matrix) {
    matrix_ = matrix;
    if (method_ == LargeMethod::direct) return set_up_direct();
    must(KSPCreate(team_.comm(), ksp_.reset()));
    must(KSPSetOperators(ksp_, matrix, matrix));
    must(KSPSetType(ksp_, KSPCG));
    must(KSPSetNormType(ksp_, KSP_NORM_UNPRECONDITIONED));
    PC preconditioner = nullptr;
    must(KSPGetPC(ksp_, &preconditioner));
    must(PCSetType(preconditioner, PCGAMG));
    must(KSPSetFromOptions(ksp_));
    must(KSPSetUp(ksp_));
    return team_.goes_on(job_);
}

bool LargeSolver::set_up_direct() {
    method_ = LargeMethod::direct;
    must(KSPCreate(team_.comm(), ksp_.reset()));
    must(KSPSetOperators(ksp_, matrix_, matrix_));
    must(KSPSetType(ksp_, KSPPREONLY));
    PC factor = nullptr;
    must(KSPGetPC(ksp_, &factor));
    must(PCSetType(factor, PCCHOLESKY));
    must(PCFactorSetMatSolverType(factor, MATSOLVERMUMPS));
    must(PCFactorSetUpMatSolverType(factor));
    Mat factored = nullptr;
    must(PCFactorGetMatrix(factor, &factored));
    must(MatMumpsSetIcntl(factored, 14, 100));  // room beside what the analysis expects, percent
    must(MatMumpsSetIcntl(factored, 24, 1));    // looks for pivots that are nothing but rounding
    must(KSPSetFromOptions(ksp_));
    must(KSPSetUp(ksp_));
    PCFailedReason failed = PC_NOERROR;
    must(PCGetFailedReason(factor, &failed));
    if (failed != PC_NOERROR) {
        PetscInt info = 0;
        MatMumpsGetInfog(factored, 1, &info);
        job_.fail(RunStatus::failed, info == -9 || info == -13 || info == -19
                                         ? "not enough memory for the direct factor"
                                         : formatted("the direct factor cannot be computed (INFOG(1) = %d)",
                                                     static_cast<int>(info)));
        return team_.goes_on(job_);
    }
    PetscInt negative = 0, zero = 0, positive = 0;
    must(MatGetInertia(factored, &negative, &zero, &positive));
    negative_pivots_ = negative;
    if (zero > 0)
        job_.fail(RunStatus::failed,
                  formatted("the body is free: %d pivots of its stiffness are nothing but rounding",
                            static_cast<int>(zero)));
    return team_.goes_on(job_);
}

bool LargeSolver::take_direct(const std::string& why) {
    job_.note(why + ": the direct factor takes over");
    job_.progress.print("%s: the direct factor takes over\n", why.c_str());
    taken_ = true;
    return set_up_direct();
}

double LargeSolver::true_residual(Vec f, Vec x, Vec left) {
    double size = 0, rest = 0;
    must(MatMult(matrix_, x, left));
    must(VecAYPX(left, -1, f));
    must(VecNorm(f, NORM_2, &size));
    must(VecNorm(left, NORM_2, &rest));
    return size > 0 ? rest / size : rest;
}

// What rounding leaves of any solution, ε ‖ |A| |x| ‖ / ‖f‖, with a multiple of the diagonal in place of |A|.
double LargeSolver::rounding(Vec f, Vec x) const {
    constexpr double of_row = 4;  // sizes of a row's entries, in parts of its diagonal
    PetscVec diagonal;
    must(VecDuplicate(x, diagonal.reset()));
    must(MatGetDiagonal(matrix_, diagonal));
    must(VecPointwiseMult(diagonal, diagonal, x));
    double size = 0, loads = 0;
    must(VecNorm(diagonal, NORM_2, &size));
    must(VecNorm(f, NORM_2, &loads));
    return loads > 0 ? of_row * std::numeric_limits<double>::epsilon() * size / loads : 0;
}

// Rounds of conjugate gradients, each from the true residual of the one before: the one that an iteration
// carries along parts from it. False where they do not come to the tolerance, or to what rounding leaves.
bool LargeSolver::iterate(Vec f, Vec x, double& residual, int& iterations) {
    constexpr double largest_rounding = 1e-5;  // a solution that grows without bound has more
    double loads = 0;
    must(VecNorm(f, NORM_2, &loads));
    must(VecSet(x, 0));
    residual = 0;
    if (!(loads > 0)) return loads == 0;
    Watch watch{team_, job_, tolerance_ * loads};
    must(KSPSetConvergenceTest(ksp_, test_convergence, &watch, nullptr));
    PetscVec left, more;
    must(VecDuplicate(f, left.reset()));
    must(VecDuplicate(x, more.reset()));
    must(VecCopy(f, left));
    for (double before = 1;; before = residual) {
        must(KSPSolve(ksp_, left, more));
        KSPConvergedReason reason{};
        must(KSPGetConvergedReason(ksp_, &reason));
        must(VecAXPY(x, 1, more));
        residual = true_residual(f, x, left);
        iterations = watch.iterations;
        if (reason < 0) return false;
        if (residual <= tolerance_) return true;
        if (residual <= std::min(rounding(f, x), largest_rounding)) return rounded_ = true;
        if (!(residual < 0.5 * before)) return false;
    }
}

bool LargeSolver::solve(std::span<double> x) {
    PetscVec f, u, left;
    must(MatCreateVecs(matrix_, u.reset(), f.reset()));
    must(VecDuplicate(f, left.reset()));
    set_values(f, x);
    double residual = 0;
    bool done = false;
    if (method_ == LargeMethod::multigrid) {
        int iterations = 0;
        done = iterate(f, u, residual, iterations);
        iterations_ = std::max(iterations_, iterations);
        if (!team_.goes_on(job_)) return false;
        if (!done &&
            !take_direct(formatted("conjugate gradients have left %.1e of the loads after %d iterations",
                                   residual, iterations)))
            return false;
    }
    if (!done) {
        must(KSPSolve(ksp_, f, u));
        residual = true_residual(f, u, left);
        if (std::isfinite(residual) && residual > 0) {  // once more for what is left
            PetscVec more;
            must(VecDuplicate(u, more.reset()));
            must(KSPSolve(ksp_, left, more));
            must(VecAXPY(u, 1, more));
            const double after = true_residual(f, u, left);
            if (after < residual)
                residual = after;
            else
                must(VecAXPY(u, -1, more));
        }
    }
    residual_ = std::max(residual_, residual);
    get_values(u, x);
    if (!std::isfinite(residual)) job_.fail(RunStatus::failed, "the displacements are not finite numbers");
    return team_.goes_on(job_);
}

bool LargeSolver::look_for_negative() {
    if (method_ == LargeMethod::direct) return true;
    PetscVec f, x;
    must(MatCreateVecs(matrix_, x.reset(), f.reset()));
    PetscInt first = 0, last = 0;
    must(MatGetOwnershipRange(matrix_, &first, &last));
    std::vector<double> values;
    for (PetscInt row = first; row < last; ++row) {  // splitmix64 of the row's number
        std::uint64_t z = (std::uint64_t(row) + 1) * 0x9e3779b97f4a7c15u;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
        values.push_back(static_cast<double>(z >> 11) * 0x1p-52 - 1);
    }
    set_values(f, values);
    double residual = 0;
    int iterations = 0;
    const bool positive = iterate(f, x, residual, iterations);
    if (!team_.goes_on(job_)) return false;
    return positive ||
           take_direct(formatted("conjugate gradients have left %.1e of a trial load after %d iterations",
                                 residual, iterations));
}

void LargeSolver::multiply(std::span<const double> x, std::span<double> y) const {
    PetscVec from, to;
    must(MatCreateVecs(matrix_, from.reset(), to.reset()));
    set_values(from, x);
    must(MatMult(matrix_, from, to));
    get_values(to, y);
}

std::string LargeSolver::outcome() const {
    if (method_ == LargeMethod::multigrid)
        return formatted("conjugate gradients with multigrid, %d iterations%s", iterations_,
                         rounded_ ? " (the limit of rounding)" : "");
    return taken_ ? formatted("direct (MUMPS), after %d iterations of conjugate gradients", iterations_)
                  : std::string("direct (MUMPS)");
}

LargeBordered::LargeBordered(const Team& team, Job& job, LargeSolver& solver, const PieceBorder& border)
    : team_(team), job_(job), solver_(solver), border_(border) {}

bool LargeBordered::prepare() {
    const std::size_t nr = border_.nr;
    if (nr == 0) return true;
    const std::size_t rows = border_.K_fr.size() / nr;
    X_ = border_.K_fr;
    for (std::size_t k = 0; k < nr; ++k)
        if (!solver_.solve(std::span(X_).subspan(k * rows, rows))) return false;
    V_.assign(nr * nr, 0.0);
    for (std::size_t j = 0; j < nr; ++j)
        for (std::size_t k = 0; k < nr; ++k)
            for (std::size_t row = 0; row < rows; ++row)
                V_[j * nr + k] -= border_.K_fr[j * rows + row] * X_[k * rows + row];
    team_.sum(V_);
    return reduce_border();
}

// The scaled S of V = -Arf Aff⁻¹ Afr: its eigenvalues, and its factors where it is not symmetric.
bool LargeBordered::reduce_border() {
    const std::size_t nr = border_.nr;
    const std::vector<double>& K_rr = border_.K_rr;
    for (std::size_t j = 0; j < nr; ++j) {
        const double diagonal = std::abs(K_rr[j * nr + j]);
        scale_.push_back(diagonal > 0 ? 1 / std::sqrt(diagonal) : 1);
    }
    std::vector<double> S(nr * nr);  // column-major
    for (std::size_t j = 0; j < nr; ++j)
        for (std::size_t k = 0; k < nr; ++k) {
            const double condensed = 0.5 * (V_[j * nr + k] + V_[k * nr + j]);
            S[k * nr + j] = (K_rr[j * nr + k] + condensed) * scale_[j] * scale_[k];
            symmetric_ = symmetric_ && K_rr[j * nr + k] == K_rr[k * nr + j];
        }
    for (std::size_t j = 0; j < nr; ++j)
        for (std::size_t k = 0; k < nr; ++k) V_[j * nr + k] = 0.5 * (S[j * nr + k] + S[k * nr + j]);
    if (!symmetric_) {
        const int n = border_.nr;
        int info = 0;
        LU_ = S;
        pivots_.resize(nr);
        dgetrf_(&n, &n, LU_.data(), &n, pivots_.data(), &info);
        if (info != 0)
            return job_.fail(RunStatus::failed,
                             "the body is free: a motion of the rigid elements meets no resistance");
    }
    if (!symmetric_eigen(static_cast<int>(nr), V_, values_))
        return job_.fail(RunStatus::failed, "the displacements are not finite numbers");
    constexpr double nothing = 1e-12;
    for (const double value : values_) {
        free_motion_ = free_motion_ || !(std::abs(value) >= nothing);
        negative_ += value < 0;
    }
    return true;
}

// x := f - K x and y := g - K y of the whole system; returns the size of both against that of f and g.
double LargeBordered::left_over(std::span<const double> f, std::span<const double> g, std::span<double> x,
                                std::span<double> y) {
    const std::size_t nr = border_.nr, rows = f.size();
    std::vector<double> Ax(rows), rest(nr, 0.0);
    solver_.multiply(x, Ax);
    for (std::size_t k = 0; k < nr; ++k)
        for (std::size_t row = 0; row < rows; ++row) {
            Ax[row] += border_.K_fr[k * rows + row] * y[k];
            rest[k] += border_.K_fr[k * rows + row] * x[row];
        }
    team_.sum(rest);
    for (std::size_t k = 0; k < nr; ++k)
        for (std::size_t j = 0; j < nr; ++j) rest[k] += border_.K_rr[k * nr + j] * y[j];
    std::array<double, 2> sizes{};
    for (std::size_t row = 0; row < rows; ++row) {
        x[row] = f[row] - Ax[row];
        sizes[0] += f[row] * f[row];
        sizes[1] += x[row] * x[row];
    }
    team_.sum(sizes);
    for (std::size_t k = 0; k < nr; ++k) {
        y[k] = g[k] - rest[k];
        sizes[0] += g[k] * g[k];
        sizes[1] += y[k] * y[k];
    }
    return sizes[0] > 0 ? std::sqrt(sizes[1] / sizes[0]) : std::sqrt(sizes[1]);
}

bool LargeBordered::solve(std::span<double> f, std::span<double> g) {
    const std::vector<double> F(f.begin(), f.end()), G(g.begin(), g.end());
    if (!eliminate(f, g)) return false;
    std::vector<double> x(f.begin(), f.end()), y(g.begin(), g.end());
    double residual = left_over(F, G, x, y);
    constexpr int most_refinements = 5;
    for (int k = 0; k < most_refinements && border_.nr > 0 && residual > solver_.tolerance(); ++k) {
        if (!eliminate(x, y)) return false;
        for (std::size_t row = 0; row < f.size(); ++row) x[row] += f[row];
        for (std::size_t row = 0; row < g.size(); ++row) y[row] += g[row];
        const std::vector<double> better = x, better_g = y;
        const double after = left_over(F, G, x, y);
        if (!(after < residual)) break;
        residual = after;
        std::ranges::copy(better, f.begin());
        std::ranges::copy(better_g, g.begin());
    }
    residual_ = std::max(residual_, residual);
    return true;
}

// The scaled S, in place.
void LargeBordered::solve_border(std::span<double> g) const {
    const std::size_t nr = g.size();
    if (!symmetric_) {
        const int n = border_.nr, one = 1;
        int info = 0;
        dgetrs_("N", &n, &one, LU_.data(), &n, pivots_.data(), g.data(), &n, &info, 1);
        return;
    }
    const std::vector<double> rest(g.begin(), g.end());
    std::ranges::fill(g, 0.0);
    for (std::size_t v = 0; v < nr; ++v) {
        double along = 0;
        for (std::size_t k = 0; k < nr; ++k) along += V_[v * nr + k] * rest[k];
        for (std::size_t k = 0; k < nr; ++k) g[k] += V_[v * nr + k] * along / values_[v];
    }
}

bool LargeBordered::eliminate(std::span<double> f, std::span<double> g) {
    if (!solver_.solve(f)) return false;
    const std::size_t nr = border_.nr, rows = f.size();
    if (nr == 0) return true;
    std::vector<double> rest(nr, 0.0);
    for (std::size_t k = 0; k < nr; ++k)
        for (std::size_t row = 0; row < rows; ++row) rest[k] -= border_.K_fr[k * rows + row] * f[row];
    team_.sum(rest);
    for (std::size_t k = 0; k < nr; ++k) g[k] = (rest[k] + g[k]) * scale_[k];
    solve_border(g);
    for (std::size_t k = 0; k < nr; ++k) g[k] *= scale_[k];
    for (std::size_t k = 0; k < nr; ++k)
        for (std::size_t row = 0; row < rows; ++row) f[row] -= X_[k * rows + row] * g[k];
    return true;
}

}  // namespace kestralum
