#include "analysis/buckling/load_factors.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "analysis/eigen/recurrence.h"
#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::int32_t guard_modes = 4;
constexpr std::int32_t preliminary_steps = 60, shortest_run = 20, long_run = 100, steps_between_looks = 10;
constexpr int most_restarts = 30;
// A κ whose size is below this share of the largest is rounding: G has values of zero.
constexpr double nothing = 1e-7;
// The first shift, in parts of the first load factor as the preliminary run leaves it: below it K + sG stays
// definite.
constexpr double share_of_first = 0.8;

class FactorSearch {
public:
    FactorSearch(BucklingProblem& problem, std::int32_t n_mode)
        : problem_(problem), n_mode_(n_mode), random_(19940115), width_(block_width(problem)) {
        wanted_ = std::min(problem.n(), n_mode + guard_modes);
    }

    // A run with K⁻¹ G: its ends are the first load factors above and below zero.
    bool preliminary() {
        std::vector<double> start;
        if (!smooth_vectors(width_, start)) return false;
        const std::int32_t most = preliminary_steps * (width_ > 1 ? 3 : 1);
        Recurrence run(problem_, {}, most, width_);
        if (!run.start(start)) return problem_.job().goes_on();
        bool settled = false;
        while (!run.exhausted() && run.steps() < most && !settled) {
            if (!run.step()) return false;
            if (!problem_.job().goes_on()) return false;
            if (run.steps() < shortest_run && !run.exhausted()) continue;
            settled = take_ends(run.ritz());
        }
        return true;
    }

    // The shift: below the first load factor, or, where the preliminary run has found none, as far up as a
    // load factor can be told from rounding.
    bool shift() {
        const double size = std::max(-lowest_, highest_);
        const bool found = lowest_ < -nothing * size;
        if (!(size > 0)) return none();
        s_ = found ? share_of_first * load_factor_of(lowest_) : 1 / (nothing * size);
        std::int64_t below = 0;
        if (!take_shift(below)) return false;
        if (!found) lowest_ = shift_;
        return found || below > 0 || none();
    }

    bool main_run() {
        problem_.progress().print("Lanczos Start:\n");
        if (!run_for(wanted_, false, width_)) return false;
        if (count() >= wanted_) return true;
        if (!count_all()) return false;
        for (int k = 0; count() < wanted_ && k < most_restarts; ++k)
            if (!run_for(wanted_ - count(), false, 1)) return false;
        return true;
    }

    // The number below a gap, and runs for what is missing there.
    bool complete() {
        SpectrumGap gap;
        std::int64_t counted = BucklingProblem::unsound_count;
        if (!find_gap_above(gap)) return false;
        if (gap.below > 0) counted = problem_.count_below(gap.lambda, gap.slack);
        if (counted == BucklingProblem::unsound_count) {
            problem_.job().note(
                "no clear gap above the load factors asked for: their number could not be checked");
            return true;
        }
        if (counted < 0) return false;
        shift_ = gap.lambda;  // the factor at hand serves
        for (int run = 0; counted > below(gap.lambda) && run < most_restarts; ++run) {
            problem_.job().note(
                formatted("%ld load factors are found where %ld are counted: a run orthogonal to the former "
                          "ones looks for the others",
                          static_cast<long>(below(gap.lambda)), static_cast<long>(counted)));
            if (!run_for(static_cast<std::int32_t>(counted - below(gap.lambda)), true, 1)) return false;
        }
        BucklingReport& report = problem_.report().buckling;
        report.found = below(gap.lambda);
        report.counted = counted;
        report.check_factor = load_factor_of(gap.lambda);
        return true;
    }

    void hand_over(LoadFactors& out) const {
        const std::size_t n = problem_.n();
        std::vector<std::size_t> order(kappa_.size());
        std::iota(order.begin(), order.end(), 0);
        std::ranges::stable_sort(order, {}, [this](std::size_t k) { return kappa_[k]; });
        for (const std::size_t k : order) {
            out.factor.push_back(load_factor_of(kappa_[k]));
            const auto from = shapes_.begin() + std::ptrdiff_t(k * n);
            out.vectors.insert(out.vectors.end(), from, from + std::ptrdiff_t(n));
        }
        out.all = all_there_are_;
        if (highest_ > nothing * -lowest_) out.reversed = load_factor_of(highest_);
    }

private:
    bool take_shift(std::int64_t& below) {
        const bool sound = problem_.shift(s_, below);
        shift_ = problem_.sigma();
        return sound;
    }

    bool none() {
        return problem_.job().fail(
            RunStatus::failed,
            highest_ > 0
                ? formatted("no load factor is above zero: the loads stiffen the body (reversed, they "
                            "buckle it at %.6g times their size)",
                            1 / highest_)
                : std::string("no load factor is above zero: the loads do not destabilise the body"));
    }

    // Random vectors through the factor in force: what is left of the highest modes is little.
    bool smooth_vectors(std::int32_t columns, std::vector<double>& out) {
        out.resize(std::size_t(problem_.n()) * columns);
        for (double& x : out) x = random_.next();
        return problem_.solve(out, columns);
    }

    // Of the preliminary run: true where both ends have settled.
    bool take_ends(const std::vector<Ritz>& all) {
        constexpr double good = 1e-3;  // the square of it is the error of the value
        const auto [low, high] = std::ranges::minmax_element(all, {}, &Ritz::theta);
        lowest_ = std::min(low->theta, 0.0);
        highest_ = std::max(high->theta, 0.0);
        const double least = nothing * std::max(-lowest_, highest_);
        return (low->residual < good || -lowest_ < least) && (high->residual < good || highest_ < least);
    }

    double kappa_of(const Ritz& ritz) const { return problem_.kappa_of(ritz.theta, shift_); }
    bool converged(const Ritz& ritz) const {
        return ritz.residual < problem_.job().options.lanczos_tolerance;
    }
    // Converged pairs above zero and below all that have not converged, or those below the shift.
    std::vector<Ritz> good_ones(std::vector<Ritz> all, bool below_shift) const {
        double limit = -nothing * -lowest_;
        for (const Ritz& ritz : all)
            if (!converged(ritz) && ritz.theta > 0) limit = std::min(limit, kappa_of(ritz));
        std::erase_if(all, [&](const Ritz& ritz) {
            return !converged(ritz) || (below_shift ? ritz.theta > 0 : kappa_of(ritz) >= limit);
        });
        std::ranges::stable_sort(all, {}, [this](const Ritz& ritz) { return kappa_of(ritz); });
        return all;
    }

    // One run beside what was found, for `missing` more: the lowest, or those below the shift.
    bool run_for(std::int32_t missing, bool below_shift, std::int32_t width) {
        std::vector<double> start;
        if (!smooth_vectors(width, start)) return false;
        Recurrence run(problem_, shapes_, long_run, width);
        if (!run.start(start)) return problem_.job().goes_on();
        const std::int32_t most = std::min(problem_.n(), 4 * std::max(long_run, n_mode_));
        std::int32_t next_look = shortest_run;
        while (!run.exhausted() && run.steps() < most) {
            if (!run.step()) return false;
            if (!problem_.job().goes_on()) return false;
            if (run.steps() < next_look) continue;
            next_look += steps_between_looks;
            problem_.progress().set_count(run.steps(), most);
            if (std::ssize(good_ones(run.ritz(), below_shift)) >= missing) break;
        }
        std::vector<Ritz> kept = good_ones(run.ritz(), below_shift);
        if (std::ssize(kept) > missing) kept.resize(missing);
        for (const Ritz& ritz : kept) kappa_.push_back(kappa_of(ritz));
        std::vector<double> shapes;
        if (!run.vectors(kept, shapes)) return false;
        shapes_.insert(shapes_.end(), shapes.begin(), shapes.end());
        return true;
    }

    // A gap above the factors asked for; where those that are found have none, more are looked for.
    bool find_gap_above(SpectrumGap& gap) {
        constexpr int most_times = 4;
        for (int time = 0;; ++time) {
            const std::vector<double> kappa = sorted();
            const auto usable = static_cast<std::int32_t>(kappa.size());
            if (usable == 0) return true;
            gap = find_gap(kappa, std::min(n_mode_, usable), usable, 0, false);
            if (gap.below == 0 && all_there_are_) gap = {0.5 * kappa.back(), -0.5 * kappa.back(), usable};
            if (gap.below > 0 || time == most_times || usable >= problem_.n()) return true;
            if (!run_for(guard_modes, false, 1)) return false;
        }
    }

    // Where a run ends with fewer than wanted: how many there are at all.
    bool count_all() {
        double far = 10 * nothing * lowest_;
        const std::int64_t there_are = problem_.count_below(far, -0.5 * far);
        if (there_are == -1) return false;
        if (there_are != BucklingProblem::unsound_count && there_are <= wanted_) {
            wanted_ = static_cast<std::int32_t>(there_are);
            all_there_are_ = true;
        }
        std::int64_t below = 0;
        return take_shift(below);
    }

    std::int32_t count() const { return static_cast<std::int32_t>(kappa_.size()); }
    std::vector<double> sorted() const {
        std::vector<double> out = kappa_;
        std::ranges::sort(out);
        return out;
    }
    std::int64_t below(double kappa) const {
        return std::ranges::count_if(kappa_, [kappa](double k) { return k < kappa; });
    }

    BucklingProblem& problem_;
    std::int32_t n_mode_, wanted_;
    FixedRandom random_;
    std::int32_t width_;
    double lowest_ = 0, highest_ = 0;  // κ at the ends, as the preliminary run leaves them
    double s_ = 0, shift_ = 0;         // the shift, and σ of the factor that the runs use
    bool all_there_are_ = false;       // wanted_ is the number of all
    std::vector<double> kappa_, shapes_;
};

}  // namespace

bool find_load_factors(BucklingProblem& problem, std::int32_t n_mode, LoadFactors& out) {
    FactorSearch search(problem, n_mode);
    if (!search.preliminary() || !search.shift() || !search.main_run() || !search.complete()) return false;
    search.hand_over(out);
    return true;
}

}  // namespace kestralum
