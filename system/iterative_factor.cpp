#include "system/iterative_factor.h"

#include <algorithm>

#include "model/format.h"

namespace kestralum {

IterativeFactor::IterativeFactor(EquationPlaces places, IterativeOptions options)
    : places_(places), options_(std::move(options)), multigrid_(options_.levels) {}

FactorStatus IterativeFactor::take_direct(std::string why, Progress& progress) {
    give_way(why);
    if (!direct_) {
        error_ = "the direct factor cannot be had";
        return FactorStatus::out_of_memory;
    }
    const FactorStatus status = direct_->factor(*km_, values_, progress);
    error_ = direct_->error();
    return status;
}

FactorStatus IterativeFactor::factor(const SparseKM& km, std::span<const double> values, Progress& progress) {
    km_ = &km;
    values_ = values;
    most_iterations_ = 0;
    worst_residual_ = 0;
    rounded_ = false;
    if (direct_) {
        const FactorStatus status = direct_->factor(km, values, progress);
        error_ = direct_->error();
        return status;
    }
    const SolveStatus status = multigrid_.set_up(km, values, places_, options_.threads, &progress);
    error_ = multigrid_.error();
    switch (status) {
        case SolveStatus::ok:
            return FactorStatus::ok;
        case SolveStatus::cancelled:
            return FactorStatus::cancelled;
        case SolveStatus::out_of_memory:
            return FactorStatus::out_of_memory;
        case SolveStatus::bad_input:
            return FactorStatus::bad_values;
        default:
            return take_direct(error_, progress);
    }
}

bool IterativeFactor::solve(std::span<double> x, std::int32_t k, const Progress* progress) {
    const std::int64_t n = km_->rows();
    for (std::int32_t c = 0; c < k; ++c) {
        const std::span<double> column = x.subspan(c * n, n);
        if (direct_) {
            const bool solved = direct_->solve(x.subspan(c * n), k - c, progress);
            error_ = direct_->error();
            return solved;
        }
        const std::vector<double> b(column.begin(), column.end());
        const SolveStatus status = multigrid_.solve(column, {.tolerance = options_.tolerance}, progress);
        most_iterations_ = std::max(most_iterations_, multigrid_.iterations());
        worst_residual_ = std::max(worst_residual_, multigrid_.residual());
        rounded_ = rounded_ || multigrid_.rounded();
        if (status == SolveStatus::ok) continue;
        error_ = multigrid_.error();
        if (status != SolveStatus::stalled && status != SolveStatus::not_positive) return false;
        std::ranges::copy(b, column.begin());
        const SilentProgress none;
        SilentProgress silent(progress ? *progress : none);
        if (take_direct(error_, silent) != FactorStatus::ok) return false;
        --c;  // once more with the factor
    }
    return true;
}

std::string IterativeFactor::outcome() const {
    if (direct_) return "solved with the direct factor";
    return formatted("%d iterations, residual %.1e%s", most_iterations_, worst_residual_,
                     rounded_ ? " (the limit of rounding)" : "");
}

}  // namespace kestralum
