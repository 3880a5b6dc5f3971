#include "solver/lobpcg.h"

#include <cblas.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>

#include "solver/dense_eigen.h"
#include "solver/panels.h"
#include "solver/tall_blocks.h"

namespace kestralum {

namespace {

constexpr double epsilon = std::numeric_limits<double>::epsilon();
constexpr std::int32_t widest_block = 10000;  // columns; LAPACK's room for three of them is counted in an int
constexpr double most_drift = 1e-10;          // of XᵀMX from I and of PᵀMX from 0
// Of the tolerance: a mode that others are to be orthogonal to from now on keeps the error that it has.
constexpr double tighter = 0.1;
constexpr double largest_rounding = 1e-4;  // a residual above it is no rounding

// In (-1, 1): the mixer of Steele, Lea and Flood (Fast splittable pseudorandom number generators, 2014).
double random_number(std::uint64_t k) {
    k = (k + 1) * 0x9e3779b97f4a7c15u;
    k = (k ^ (k >> 30)) * 0xbf58476d1ce4e5b9u;
    k = (k ^ (k >> 27)) * 0x94d049bb133111ebu;
    return std::ldexp(static_cast<double>((k ^ (k >> 31)) >> 11), -52) - 1;
}

struct BlockPlan {
    std::int32_t columns;  // of the block
    std::int32_t ahead;    // modes that are to be done before the block has columns for all that are left
};

// N  the null space and modes that are done, m columns   W  preconditioned residuals, w
// X  the modes as they stand, b                          T  room for products with K or M
// P  directions of the last step, p
// N, X, P and W stand in this order in S, all M-orthonormal: the projected problem is a standard one
// (Hetmaniuk and Lehoucq, J. Comput. Phys. 218, 2006). Residuals are formed anew from X in every iteration.
class Iteration {
public:
    Iteration(const LobpcgProblem& problem, const LobpcgOptions& options, const BlockPlan& plan,
              RowTeam& team)
        : problem_(problem),
          options_(options),
          team_(team),
          n_(problem.n),
          plan_(plan),
          m_(static_cast<std::int32_t>(problem.null_space.size() / std::size_t(n_))),
          b_(plan.columns),
          S_(allocate_block((m_ + plan_.ahead + 3 * std::int64_t{b_}) * n_)),
          T_(allocate_block(std::max(m_, b_) * n_)),
          tall_(n_, std::max(m_, 3 * b_), team) {
        result_.status = S_ && T_ ? SolveStatus::ok : SolveStatus::out_of_memory;
    }

    LobpcgResult run() {
        if (result_.status == SolveStatus::ok && start()) iterate();
        if (team_.ended() == RowTeam::Ended::cancelled) result_.status = SolveStatus::cancelled;
        if (team_.ended() == RowTeam::Ended::out_of_memory) result_.status = SolveStatus::out_of_memory;
        if (result_.status == SolveStatus::ok || result_.status == SolveStatus::stalled) hand_over();
        return std::move(result_);
    }

private:
    double* column(std::int64_t k) { return S_.get() + k * n_; }
    double* X() { return column(m_); }
    double* W() { return column(m_ + b_ + p_); }

    std::int32_t done() const { return static_cast<std::int32_t>(done_lambda_.size()); }
    std::int32_t left() const { return options_.n_mode - done(); }
    // Of the residual of column j: the tolerance, or where that is more what rounding leaves of K φ - λ M φ,
    // a few ε ‖K φ‖ of a rough vector.
    double threshold(std::int32_t j) const {
        const double rounding = 4 * epsilon * rough_lambda_ / (lambda_[j] + lambda_1_);
        return std::max((done() < plan_.ahead ? tighter : 1.0) * options_.tolerance,
                        std::min(rounding, largest_rounding));
    }

    bool fail(SolveStatus why) {
        result_.status = why;
        return false;
    }
    bool good(SolveStatus status) { return status == SolveStatus::ok ? team_.goes_on() : fail(status); }
    std::span<double> block(double* A, std::int32_t k) { return {A, std::size_t(n_) * std::size_t(k)}; }
    bool multiply(const BlockOperator& A, double* x, double* y, std::int32_t k) {
        return k == 0 || good(A(block(x, k), block(y, k), k));
    }
    bool precondition(double* x, std::int32_t k) {
        result_.preconditioned += k;
        return k == 0 || good(problem_.precondition(block(x, k), k));
    }
    bool copy(const double* from, double* to, std::int32_t k) {
        for (std::int32_t j = 0; j < k && team_.goes_on(); ++j) std::copy_n(from + j * n_, n_, to + j * n_);
        return team_.goes_on();
    }
    bool orthonormal(std::int32_t before, double* A, std::int32_t& k) {
        return good(orthonormalise({problem_.multiply_m, n_, T_.get(), tall_}, S_.get(), before, A, k));
    }

    bool start();
    bool ritz_of_modes();
    bool measure_rough(double* rough);
    void iterate();
    bool products_of_modes();
    bool residuals();
    bool at_end();
    void set_apart();
    bool fresh_columns(double* A, std::int32_t k, bool smooth);
    bool directions();
    bool ritz();
    std::vector<double> projected_stiffness(const std::vector<double>& KW) const;
    std::int32_t next_directions(std::int32_t s, std::int32_t columns, std::vector<double>& C) const;
    void hand_over();

    const LobpcgProblem& problem_;
    const LobpcgOptions& options_;
    RowTeam& team_;
    const std::int64_t n_;
    const BlockPlan plan_;
    std::int32_t m_, b_, p_ = 0, w_ = 0;
    Block S_;  // n × (m + ahead + 3b)
    Block T_;  // n × the larger of m and b
    TallBlocks tall_;
    std::vector<double> KX_;                           // [X P]ᵀ K X, (b + p) × b
    std::vector<double> PKP_;                          // p × p
    std::vector<double> lambda_;                       // b
    std::vector<double> residual_;                     // b
    std::vector<double> done_lambda_, done_residual_;  // of the modes that are done, the last columns of N
    std::int32_t fresh_ = 0;                           // random columns of W
    std::uint64_t seed_ = 0;                           // of the next random column
    std::vector<std::int32_t> unsettled_;              // columns of X above the tolerance
    double rough_lambda_ = 0, lambda_1_ = 0;
    double nearest_ = std::numeric_limits<double>::infinity();  // see at_end()
    int nearest_at_ = 0;
    LobpcgResult result_;
};

// A rough vector's Rayleigh quotient, which is of the size of the largest eigenvalue.
bool Iteration::measure_rough(double* rough) {
    double mass = 0, stiffness = 0;
    if (!multiply(problem_.multiply_m, rough, T_.get(), 1) ||
        !tall_.gram(rough, 1, T_.get(), 1, {&mass, 1}) ||
        !multiply(problem_.multiply_k, rough, T_.get(), 1) ||
        !tall_.gram(rough, 1, T_.get(), 1, {&stiffness, 1}))
        return false;
    if (!std::isfinite(mass) || !std::isfinite(stiffness)) return fail(SolveStatus::bad_input);
    if (!(mass > 0) || !(stiffness > 0)) return fail(SolveStatus::not_positive);
    rough_lambda_ = stiffness / mass;
    return true;
}

// k random columns r, smooth: T M r.
bool Iteration::fresh_columns(double* A, std::int32_t k, bool smooth) {
    const bool filled = team_.rows(
        n_,
        [&](std::int64_t first, std::int64_t last, int) {
            for (std::int32_t j = 0; j < k; ++j)
                for (std::int64_t i = first; i < last; ++i)
                    A[j * n_ + i] = random_number(((seed_ + j) << 32) + i);
        },
        4096);
    seed_ += k;
    if (!filled || (rough_lambda_ == 0 && !measure_rough(A))) return false;
    return !smooth ||
           (multiply(problem_.multiply_m, A, T_.get(), k) && copy(T_.get(), A, k) && precondition(A, k));
}

// N, and X from smooth random columns.
bool Iteration::start() {
    if (!copy(problem_.null_space.data(), S_.get(), m_)) return false;
    if (!orthonormal(0, S_.get(), m_)) return false;
    std::int32_t have = 0;
    for (int attempt = 0; have < b_ && attempt < 3; ++attempt) {
        std::int32_t k = b_ - have;
        if (!fresh_columns(column(m_ + have), k, attempt == 0) ||
            !orthonormal(m_ + have, column(m_ + have), k))
            return false;
        have += k;
    }
    if (have < std::min(options_.n_mode, b_)) return fail(SolveStatus::not_positive);
    b_ = have;
    return ritz_of_modes();
}

// Rayleigh and Ritz on X alone.
bool Iteration::ritz_of_modes() {
    p_ = w_ = 0;
    unsettled_.clear();
    PKP_.clear();
    KX_.assign(std::size_t(b_) * b_, 0.0);
    return multiply(problem_.multiply_k, X(), T_.get(), b_) && tall_.gram(X(), b_, T_.get(), b_, KX_) &&
           ritz();
}

void Iteration::iterate() {
    for (; products_of_modes() && residuals() && !at_end(); ++result_.iterations)
        if (!directions() || !ritz()) return;
}

// T = M X and, where W stands, K X, with the products that show how orthonormal X still is and what the Ritz
// values are: what rounding has added over the iterations does not stay.
bool Iteration::products_of_modes() {
    for (int attempt = 0;; ++attempt) {
        const std::int32_t all = m_ + b_ + p_;
        std::vector<double> MX(std::size_t(all) * b_);
        if (!multiply(problem_.multiply_m, X(), T_.get(), b_) || !tall_.gram(S_.get(), all, T_.get(), b_, MX))
            return false;
        double drift = 0;
        for (std::int32_t j = 0; j < b_; ++j)
            for (std::int32_t i = 0; i < all; ++i)
                drift = std::max(drift, std::abs(MX[std::size_t(all) * j + i] - (i == m_ + j ? 1.0 : 0.0)));
        if (drift <= most_drift || attempt > 0) break;
        std::int32_t left = b_;
        if (!orthonormal(m_, X(), left)) return false;
        if (left < b_) return fail(SolveStatus::stalled);
        if (!ritz_of_modes()) return false;
    }
    KX_.assign(std::size_t(b_ + p_) * b_, 0.0);
    return multiply(problem_.multiply_k, X(), W(), b_) && tall_.gram(X(), b_ + p_, W(), b_, KX_);
}

// W = K X - M X Λ.
bool Iteration::residuals() {
    lambda_.resize(b_);
    for (std::int32_t j = 0; j < b_; ++j) lambda_[j] = KX_[std::size_t(b_ + p_) * j + j];
    lambda_1_ = done() > 0 ? done_lambda_[0] : *std::min_element(lambda_.begin(), lambda_.end());
    double* R = W();
    const double* MX = T_.get();
    std::vector<double> sums(2 * std::size_t(b_));
    if (!tall_.sum_rows(2 * b_, sums, [&](std::int64_t i, double* sum) {
            for (std::int32_t j = 0; j < b_; ++j) {
                const double kx = R[j * n_ + i], mx = MX[j * n_ + i];
                const double r = kx - lambda_[j] * mx, size = kx + lambda_1_ * mx;
                R[j * n_ + i] = r;
                sum[2 * j] += r * r;
                sum[2 * j + 1] += size * size;
            }
        }))
        return false;
    residual_.resize(b_);
    unsettled_.clear();
    for (std::int32_t j = 0; j < b_; ++j) {
        residual_[j] = std::sqrt(sums[2 * j] / sums[2 * j + 1]);
        if (!std::isfinite(residual_[j])) return fail(SolveStatus::bad_input);
        if (residual_[j] > threshold(j)) unsettled_.push_back(j);
    }
    return true;
}

// Whether the modes have come within the tolerance, or no longer come nearer: the sum of what their residuals
// are above it, in powers of two, must fall by one in `patience` iterations.
bool Iteration::at_end() {
    double distance = 0;
    std::int32_t settled = done();
    for (std::int32_t j = 0; j < left(); ++j) {
        if (j < b_ && residual_[j] <= threshold(j))
            ++settled;
        else if (j < b_)
            distance += std::log2(std::min(residual_[j], 1.0) / threshold(j));
        else
            distance -= std::log2(std::max(tighter * options_.tolerance, epsilon));
    }
    if (options_.each) options_.each(result_.iterations, settled);
    if (settled == options_.n_mode && done() == plan_.ahead) return true;
    if (distance <= nearest_ - 1) nearest_ = distance, nearest_at_ = result_.iterations;
    if (result_.iterations < options_.most_iterations && result_.iterations - nearest_at_ < options_.patience)
        return false;
    fail(SolveStatus::stalled);
    return true;
}

// Of the modes that are to be done ahead of others, the lowest that have settled become columns of N.
void Iteration::set_apart() {
    const std::int32_t settled = unsettled_.empty() ? b_ : unsettled_[0];
    const std::int32_t k = std::min(settled, plan_.ahead - done());
    fresh_ = k;
    if (k == 0) return;
    done_lambda_.insert(done_lambda_.end(), lambda_.begin(), lambda_.begin() + k);
    done_residual_.insert(done_residual_.end(), residual_.begin(), residual_.begin() + k);
    std::vector<double> KX;
    for (std::int32_t j = k; j < b_; ++j) {
        const auto from = KX_.begin() + std::ptrdiff_t{b_ + p_} * j;
        KX.insert(KX.end(), from + k, from + b_ + p_);
    }
    KX_ = std::move(KX);
    m_ += k, b_ -= k;
    for (std::int32_t& j : unsettled_) j -= k;
}

// W = T R of the columns that have not settled, and random columns in place of those set apart, orthonormal.
bool Iteration::directions() {
    w_ = static_cast<std::int32_t>(unsettled_.size());
    if (!tall_.choose(W(), unsettled_) || !precondition(W(), w_)) return false;
    set_apart();
    if (!fresh_columns(W() + w_ * n_, fresh_, true)) return false;
    w_ += fresh_;
    return orthonormal(m_ + b_ + p_, W(), w_) && (w_ + p_ > 0 || fail(SolveStatus::stalled));
}

// [X P W]ᵀ K [X P W] from KW = [X P W]ᵀ K W and the products with X and P.
std::vector<double> Iteration::projected_stiffness(const std::vector<double>& KW) const {
    const std::size_t b = b_, p = p_, w = w_, s = b + p + w;
    std::vector<double> H(s * s, 0.0);
    const auto set = [&](std::size_t i, std::size_t j, double value) { H[s * j + i] = H[s * i + j] = value; };
    for (std::size_t j = 0; j < b; ++j) {
        for (std::size_t i = 0; i <= j; ++i) set(i, j, 0.5 * (KX_[(b + p) * j + i] + KX_[(b + p) * i + j]));
        for (std::size_t i = b; i < b + p; ++i) set(i, j, KX_[(b + p) * j + i]);
    }
    for (std::size_t j = 0; j < p; ++j)
        for (std::size_t i = 0; i <= j; ++i) set(b + i, b + j, 0.5 * (PKP_[p * j + i] + PKP_[p * i + j]));
    for (std::size_t j = 0; j < w; ++j) {
        for (std::size_t i = 0; i < b + p; ++i) set(i, b + p + j, KW[s * j + i]);
        for (std::size_t i = 0; i <= j; ++i)
            set(b + p + i, b + p + j, 0.5 * (KW[s * j + b + p + i] + KW[s * i + b + p + j]));
    }
    return H;
}

// Behind the first columns of C (s × columns, orthonormal), those without the part in X of every column that
// has not settled, orthonormal with C (Hetmaniuk and Lehoucq, 2006, section 4.2); dependent ones are dropped.
// Returns their number.
std::int32_t Iteration::next_directions(std::int32_t s, std::int32_t columns, std::vector<double>& C) const {
    std::int32_t count = columns;
    std::vector<double> g(std::size_t(columns) + unsettled_.size());
    C.reserve(s * g.size());
    for (const std::int32_t j : unsettled_) {
        C.resize(std::size_t(s) * (count + 1));
        double* z = &C[std::size_t(s) * count];
        std::fill_n(z, b_, 0.0);
        std::copy_n(&C[std::size_t(s) * j + b_], s - b_, z + b_);
        double size = cblas_dnrm2(s, z, 1);
        bool left = size > 100 * epsilon;
        for (int pass = 0; pass < 2 && left; ++pass) {
            cblas_dgemv(CblasColMajor, CblasTrans, s, count, 1.0, C.data(), s, z, 1, 0.0, g.data(), 1);
            cblas_dgemv(CblasColMajor, CblasNoTrans, s, count, -1.0, C.data(), s, g.data(), 1, 1.0, z, 1);
            const double now = cblas_dnrm2(s, z, 1);
            left = now > 1e-8 * size;
            size = 1;
            if (left) cblas_dscal(s, 1 / now, z, 1);
        }
        if (left) ++count;
    }
    C.resize(std::size_t(s) * count);
    return count - columns;
}

// Rayleigh and Ritz on [X P W]: the lowest b vectors become X, what W and P gave them P.
bool Iteration::ritz() {
    const std::int32_t s = b_ + p_ + w_;
    std::vector<double> KW(std::size_t(s) * w_);
    if (w_ > 0 &&
        (!multiply(problem_.multiply_k, W(), T_.get(), w_) || !tall_.gram(X(), s, T_.get(), w_, KW)))
        return false;
    const std::vector<double> H = projected_stiffness(KW);
    std::vector<double> C = H, values;
    if (!symmetric_eigen(s, C, values)) return fail(SolveStatus::bad_input);
    if (!(values[0] > 100 * epsilon * rough_lambda_)) return fail(SolveStatus::not_positive);
    const std::int32_t columns = std::min(plan_.columns, s);
    C.resize(std::size_t(s) * columns);
    const std::int32_t p = next_directions(s, columns, C);
    if (!tall_.combine(X(), s, C, columns + p)) return false;
    b_ = columns, p_ = p, w_ = 0;
    PKP_.assign(std::size_t(p) * p, 0.0);
    if (p == 0) return true;
    const double* Z = &C[std::size_t(s) * columns];
    std::vector<double> HZ(std::size_t(s) * p);
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, s, p, s, 1.0, H.data(), s, Z, s, 0.0, HZ.data(),
                s);
    cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, p, p, s, 1.0, Z, s, HZ.data(), s, 0.0, PKP_.data(),
                p);
    return true;
}

void Iteration::hand_over() {
    if (residual_.empty()) return;
    const std::int32_t count = std::min(options_.n_mode, done() + b_);
    T_.reset();
    const std::int64_t before = m_ - done();
    lambda_.insert(lambda_.begin(), done_lambda_.begin(), done_lambda_.end());
    residual_.insert(residual_.begin(), done_residual_.begin(), done_residual_.end());
    std::vector<std::int32_t> order(count);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::int32_t i, std::int32_t j) { return lambda_[i] < lambda_[j]; });
    result_.vectors.reserve(std::size_t(n_) * count);
    for (const std::int32_t j : order) {
        const double* phi = column(before + j);
        result_.lambda.push_back(lambda_[j]);
        result_.residual.push_back(residual_[j]);
        result_.rounded |= result_.status == SolveStatus::ok && residual_[j] > options_.tolerance;
        result_.vectors.insert(result_.vectors.end(), phi, phi + n_);
    }
}

}  // namespace

LobpcgResult lobpcg(const LobpcgProblem& problem, const LobpcgOptions& options, const Progress* progress) {
    LobpcgResult result;
    const std::int64_t n = problem.n;
    const auto known = static_cast<std::int64_t>(problem.null_space.size());
    const std::int64_t guards =
        options.guards < 0 ? std::clamp(options.n_mode / 3, 4, 12) : std::int64_t{options.guards};
    const std::int64_t most = n > 0 ? n - known / n : 0;
    const std::int64_t all = std::min(options.n_mode + guards, most);
    const std::int64_t block = std::min(all, std::max(guards + 1, std::int64_t{options.most_columns}));
    result.status = SolveStatus::bad_input;
    if (n <= 0 || known % n != 0 || options.n_mode < 1 || options.n_mode > most || block > widest_block ||
        !(options.tolerance >= 0))
        return result;
    try {
        use_serial_blas();
        RowTeam team(options.threads, progress);
        const BlockPlan plan{static_cast<std::int32_t>(block), static_cast<std::int32_t>(all - block)};
        return Iteration(problem, options, plan, team).run();
    } catch (const std::bad_alloc&) {
        result.status = SolveStatus::out_of_memory;
        return result;
    }
}

}  // namespace kestralum
