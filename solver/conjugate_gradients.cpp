#include "solver/conjugate_gradients.h"

#include <cmath>
#include <limits>

namespace kestralum {

namespace {

// A residual above this one is no rounding: a solution that grows without bound would have it so.
constexpr double largest_rounding = 1e-5;

SolveStatus status_of(RowTeam::Ended ended) {
    switch (ended) {
        case RowTeam::Ended::no:
            return SolveStatus::ok;
        case RowTeam::Ended::cancelled:
            return SolveStatus::cancelled;
        case RowTeam::Ended::out_of_memory:
            return SolveStatus::out_of_memory;
    }
    return SolveStatus::ok;
}

// r = b - A x, z = about A⁻¹ r, p the direction, q = A p
class Iteration {
public:
    Iteration(const PositiveSystem& system, RowTeam& team, std::span<double> x, const IterationLimits& limits)
        : system_(system),
          team_(team),
          limits_(limits),
          x_(x),
          b_(x.begin(), x.end()),
          r_(b_),
          z_(x.size()),
          p_(x.size()),
          q_(x.size()),
          n_(static_cast<std::int64_t>(x.size())) {}

    IterationResult run() {
        std::fill(x_.begin(), x_.end(), 0.0);
        norm_b_ = std::sqrt(team_.dot(b_, b_));
        if (!std::isfinite(norm_b_)) result_.status = SolveStatus::bad_input;
        if (norm_b_ > 0 && result_.status == SolveStatus::ok) iterate();
        if (team_.ended() != RowTeam::Ended::no) result_.status = status_of(team_.ended());
        return result_;
    }

private:
    // Rounds of iterations, each from the true residual of the one before.
    void iterate() {
        result_.residual = 1;
        while (descend()) {
            const double before = result_.residual;
            take_true_residual();
            if (result_.residual <= limits_.tolerance || at_rounding() || !team_.goes_on()) return;
            if (!(result_.residual < 0.5 * before)) {
                result_.status = SolveStatus::stalled;
                return;
            }
        }
        take_true_residual();
    }

    // Until the carried residual is within the tolerance; false where it does not come there.
    bool descend() {
        double best = result_.residual, rz = 0;
        int best_at = result_.iterations;
        for (bool restart = true;; restart = false) {
            system_.precondition(r_, z_);
            const double old = rz;
            rz = team_.dot(r_, z_);
            if (!team_.goes_on()) return false;
            if (!(rz > 0)) return refuse(z_);
            const double beta = restart ? 0.0 : rz / old;
            each([&](std::int64_t i) { p_[i] = z_[i] + beta * p_[i]; });
            system_.multiply(p_, q_);
            const double curvature = team_.dot(p_, q_);
            if (!team_.goes_on()) return false;
            if (!(curvature > 0)) return fail(SolveStatus::not_positive);
            const double alpha = rz / curvature;
            each([&](std::int64_t i) { x_[i] += alpha * p_[i], r_[i] -= alpha * q_[i]; });
            ++result_.iterations;
            const double residual = std::sqrt(team_.dot(r_, r_)) / norm_b_;
            if (residual <= limits_.tolerance) return true;
            if (residual <= 0.5 * best) best = residual, best_at = result_.iterations;
            if (result_.iterations >= limits_.iterations ||
                result_.iterations - best_at >= limits_.patience || !std::isfinite(residual))
                return fail(SolveStatus::stalled);
        }
    }

    bool fail(SolveStatus why) {
        result_.status = why;
        return false;
    }
    // The preconditioner is not positive: so is the matrix where z, which it made, has no positive energy.
    bool refuse(std::span<const double> z) {
        system_.multiply(z, q_);
        return fail(team_.dot(z, q_) > 0 ? SolveStatus::stalled : SolveStatus::not_positive);
    }

    void take_true_residual() {
        system_.multiply(x_, q_);
        each([&](std::int64_t i) { r_[i] = b_[i] - q_[i]; });
        result_.residual = std::sqrt(team_.dot(r_, r_)) / norm_b_;
    }
    bool at_rounding() {
        system_.multiply_absolute(x_, q_);
        const double limit = std::numeric_limits<double>::epsilon() * std::sqrt(team_.dot(q_, q_)) / norm_b_;
        return result_.rounded = result_.residual <= std::min(limit, largest_rounding);
    }

    template <typename Work>
    void each(const Work& work) {
        team_.rows(
            n_,
            [&](std::int64_t first, std::int64_t last, int) {
                for (std::int64_t i = first; i < last; ++i) work(i);
            },
            16384);
    }

    const PositiveSystem& system_;
    RowTeam& team_;
    const IterationLimits& limits_;
    std::span<double> x_;
    std::vector<double> b_, r_, z_, p_, q_;
    const std::int64_t n_;
    double norm_b_ = 0;
    IterationResult result_;
};

}  // namespace

IterationResult conjugate_gradients(const PositiveSystem& system, RowTeam& team, std::span<double> x,
                                    const IterationLimits& limits) {
    return Iteration(system, team, x, limits).run();
}

}  // namespace kestralum
