#include "analysis/eigen/shifted_pencil.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace kestralum {

double FixedRandom::next() {  // splitmix64 (Steele, Lea and Flood, 2014)
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    z ^= z >> 31;
    return static_cast<double>(z >> 11) * 0x1p-52 - 1.0;
}

double ShiftedPencil::diagonal(std::int32_t i, const std::vector<double>& values,
                               const std::vector<double>& rr) const {
    if (i < km_.rows()) return values[km_.diag_pos[i]];
    return rr[std::size_t(i - km_.rows()) * (border_.nr + 1)];
}

bool ShiftedPencil::pivots_sound() const {
    const double share = n() * std::numeric_limits<double>::epsilon();
    if (border_.nr > 0 && !(factor_->smallest_scaled(shifted_rr_) >= share)) return false;
    return !factor_->free() || factor_->free()->small_pivots(share).empty();
}

bool ShiftedPencil::factor_shifted(double sigma, Progress& lines) {
    sigma_ = sigma;
    shifted_.resize(km_.K_value.size());
    for (std::size_t k = 0; k < shifted_.size(); ++k) shifted_[k] = km_.K_value[k] - sigma * km_.M_value[k];
    const auto shift_part = [&](const std::vector<double>& K, const std::vector<double>& M,
                                std::vector<double>& out) {
        out.resize(K.size());
        for (std::size_t k = 0; k < K.size(); ++k) out[k] = K[k] - sigma * M[k];
    };
    shift_part(border_.K_fr, border_.M_fr, shifted_fr_);
    shift_part(border_.K_rr, border_.M_rr, shifted_rr_);
    job_.clock.begin("factor");
    ++report().factorizations;
    return factor_->factor(job_, lines, km_, shifted_, shifted_fr_, shifted_rr_);
}

std::int64_t ShiftedPencil::count_below(double& lambda, double slack) {
    const double former = sigma_, middle = lambda;
    // the middle of the gap, then ever farther from it to either side
    constexpr std::array<double, 5> places{0, 0.3, -0.3, 0.6, -0.6};
    bool factored = false, sound = false;
    for (std::size_t k = 0; k < places.size() && !sound; ++k) {
        lambda = middle + places[k] * slack;
        SilentProgress silent(progress());
        factored = factor_shifted(lambda, silent);  // the negative pivots are what is counted, not a warning
        if (!factored) break;
        sound = pivots_sound();
    }
    report().check_seconds += job_.clock.rename_last("check");
    job_.clock.begin("iterate");
    sigma_ = former;
    if (!factored) return -1;
    return sound ? factor_->negative_pivots() : unsound_count;
}

bool ShiftedPencil::outcome(const RowTeam& team) {
    if (team.ended() == RowTeam::Ended::out_of_memory)
        return job_.fail(RunStatus::failed, "not enough memory for this model");
    return team.ended() == RowTeam::Ended::no || job_.goes_on();
}

bool ShiftedPencil::solve(std::span<double> x, std::int32_t k) {
    report().solved_columns += k;
    return factor_->solve(job_, x, k);
}

bool ShiftedPencil::operate(std::span<const double>, std::span<const double> BV, std::vector<double>& W,
                            std::int32_t k) {
    W.assign(BV.begin(), BV.end());
    return solve(W, k);
}

void ShiftedPencil::multiply_m(std::span<const double> x, std::span<double> y, std::int32_t k) {
    multiply(km_, km_.M_value, x, y, n(), k, job_.threads());
    multiply_border(border_, border_.M_fr, border_.M_rr, x, y, k);
}

void ShiftedPencil::multiply_k(std::span<const double> x, std::span<double> y, std::int32_t k) const {
    multiply(km_, km_.K_value, x, y, n(), k, job_.threads());
    multiply_border(border_, border_.K_fr, border_.K_rr, x, y, k);
}

SpectrumGap find_gap(std::span<const double> lambda, std::int32_t n_mode, std::int32_t usable,
                     double rounding, bool all_of_them) {
    SpectrumGap best;
    double widest = 0.01;  // relative distance that counts as clear
    for (std::int32_t j = n_mode; j < usable; ++j) {
        const double a = lambda[j - 1], b = lambda[j];
        if (b - a < 100 * rounding) continue;
        const double width = (b - a) / std::max(std::abs(b), rounding);
        if (width <= widest) continue;
        widest = width;
        best = {0.5 * (a + b), 0.5 * (b - a), j};
    }
    if (best.below == 0 && all_of_them && !lambda.empty()) {
        const double largest = lambda.back();
        const double above = std::max(std::abs(largest), 100 * rounding);
        best = {largest + above, above, static_cast<std::int32_t>(lambda.size())};
    }
    return best;
}

}  // namespace kestralum
