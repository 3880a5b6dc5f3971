#include "analysis/eigen/eigen_problem.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/format.h"
#include "solver/ldl.h"
#include "solver/memory_limits.h"

namespace kestralum {

double frequency_of(double lambda) {
    return lambda > 0 ? std::sqrt(lambda) * 0.5 / eigen_pi : 0.0;
}

double lambda_of(double frequency) {
    return 4 * eigen_pi * eigen_pi * frequency * frequency;
}

double FixedRandom::next() {  // splitmix64 (Steele, Lea and Flood, 2014)
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    z ^= z >> 31;
    return static_cast<double>(z >> 11) * 0x1p-52 - 1.0;
}

double EigenProblem::diagonal(std::int32_t i, const std::vector<double>& values,
                              const std::vector<double>& rr) const {
    if (i < km_.rows()) return values[km_.diag_pos[i]];
    return rr[std::size_t(i - km_.rows()) * (border_.nr + 1)];
}

EigenProblem::EigenProblem(Job& job, const AssembledSystem& system, std::unique_ptr<BorderedFactor> factor)
    : job_(job),
      km_(system.km),
      border_(system.border),
      factor_(std::move(factor)),
      mass_(km_, system.freedoms.numbering.free_dofs),
      couples_directions_(!system.freedoms.constraints.map.empty()) {
    for (const std::int32_t part : job.model.mesh.p_ele_part_id) {
        const Material& material = job.model.materials[job.model.parts[part].material_id];
        elastic_scale_ = std::max(elastic_scale_,
                                  material.young / material.density / std::pow(job.model.mesh.max_length, 2));
    }
    double stiffest = elastic_scale_;
    for (std::int32_t i = 0; i < n(); ++i) stiffest = std::max(stiffest, diagonal_k(i) / diagonal_m(i));
    rounding_ = 100 * std::numeric_limits<double>::epsilon() * stiffest;
}

bool EigenProblem::pivots_sound() const {
    const double share = n() * std::numeric_limits<double>::epsilon();
    if (border_.nr > 0 && !(factor_->smallest_scaled(shifted_rr_) >= share)) return false;
    return !factor_->free() || factor_->free()->small_pivots(share).empty();
}

bool EigenProblem::factor_shifted(double sigma, Progress& lines) {
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

void EigenProblem::keep_shift() {
    const std::string line = formatted(
        "the reference frequency of the second shift is nothing but rounding: the shift of %.6g Hz is kept",
        frequency_of(sigma()));
    progress().notice("%s", line.c_str());
    job_.note(line);
}

bool EigenProblem::shift(double sigma, bool with_frequency) {
    double tenth_of_a_hertz = lambda_of(0.1);
    for (int attempt = 0; attempt < 12; ++attempt) {
        progress().print("Shift K sparse\n");
        if (with_frequency)
            progress().print("  Shift frequency=%e[Hz]\n", std::sqrt(std::max(sigma, 0.0)) * 0.5 / eigen_pi);
        progress().print("Shift K sparse complete\n");
        if (!factor_shifted(sigma, progress())) return false;
        job_.clock.begin("iterate");
        if (pivots_sound()) return true;
        if (with_frequency && attempt < 2) {
            sigma = sigma * 1.001 + tenth_of_a_hertz * 1e-6;
        } else {
            tenth_of_a_hertz *= attempt == 2 && with_frequency ? 1 : 100;
            sigma = tenth_of_a_hertz;
        }
        const std::string line =
            formatted("a pivot of the shifted matrix is nothing but rounding: the shift is moved to %.6g Hz",
                      frequency_of(sigma));
        progress().notice("%s", line.c_str());
        job_.note(line);
    }
    return job_.fail(RunStatus::failed, "no shift makes the matrix of the eigenproblem sound");
}

bool EigenProblem::start_vector_through_w(std::vector<double>& start) {
    progress().print("LU M_sparse\n");
    // the bodies' part of the vector goes through the diagonal alone: it only has to reach every mode
    start.assign(n(), 1 / std::sqrt(static_cast<double>(n())));
    for (std::int32_t i = km_.rows(); i < n(); ++i) start[i] /= std::sqrt(diagonal_m(i));
    const auto* skyline = dynamic_cast<const SkylineFactor*>(factor_->free());
    if (!skyline) {  // without the profile of W its diagonal stands for it
        for (std::int32_t i = 0; i < km_.rows(); ++i) start[i] /= std::sqrt(diagonal_m(i));
        progress().print("LU M_sparse complete\n");
        return true;
    }
    job_.clock.begin("factor");
    ++report().factorizations;
    const SkylineFactor& like = *skyline;
    const std::span<double> free = std::span(start).first(km_.rows());
    if (couples_directions_) return start_through_whole_w(like, free);
    W_ = std::make_unique<MassFactor>(mass_, like.profile(), like.divisions(), like.options());
    // a ninth of a whole factor, like [K] itself beyond the budget for panels, so that this does not show in
    // the result
    if (W_->megabytes() > machine_megabytes()) return start_through_whole_w(like, free);
    const auto fail = [&](const char* what) { return job_.fail(RunStatus::failed, what + W_->error()); };
    const FactorStatus status = W_->factor(progress());
    if (status == FactorStatus::cancelled) return job_.goes_on();
    if (status != FactorStatus::ok) return fail("the factorization of [M] cannot go on: ");
    progress().print("LU M_sparse complete\n");
    progress().print("s_L:%ld\n", like.profile().Ls_num);
    job_.clock.begin("iterate");
    return W_->solve_wt(free) || fail("the solution with W cannot go on: ");
}

// Through the factor of all of [M], whose rows are read back from its files.
bool EigenProblem::start_through_whole_w(const SkylineFactor& like, std::span<double> start) {
    W_.reset();
    FactorOptions options = like.options();
    options.file_stem = mass_stem;
    options.write_last = false;
    SkylineFactor W(like.profile(), like.divisions(), options);
    const auto fail = [&](const char* what) { return job_.fail(RunStatus::failed, what + W.error()); };
    const FactorStatus status = W.factor_ww(km_, km_.M_value, progress());
    if (status == FactorStatus::cancelled) return job_.goes_on();
    if (status != FactorStatus::ok) return fail("the factorization of [M] cannot go on: ");
    progress().print("LU M_sparse complete\n");
    progress().print("s_L:%ld\n", W.profile().Ls_num);
    job_.clock.begin("iterate");
    return W.solve_wt(start) || fail("the solution with W cannot go on: ");
}

std::int64_t EigenProblem::count_below(double& lambda, double slack) {
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

bool EigenProblem::outcome(const RowTeam& team) {
    if (team.ended() == RowTeam::Ended::out_of_memory)
        return job_.fail(RunStatus::failed, "not enough memory for this model");
    return team.ended() == RowTeam::Ended::no || job_.goes_on();
}

bool EigenProblem::await_files() {
    if (!factor_->await_file(job_)) return false;
    const FactorStatus status = W_ ? W_->await_files() : FactorStatus::ok;
    if (status == FactorStatus::cancelled) return job_.goes_on();
    return status == FactorStatus::ok ||
           job_.fail(RunStatus::failed, "the factorization of [M] cannot go on: " + W_->error());
}

bool EigenProblem::solve(std::span<double> x, std::int32_t k) {
    report().solved_columns += k;
    return factor_->solve(job_, x, k);
}

namespace {

// y = A x row by row, columns n apart, 0 below the last row of A; every row's sum runs in the order of its
// entries whatever the threads.
void multiply_columns(std::span<const std::int64_t> start, std::span<const std::int32_t> columns,
                      std::span<const double> values, std::span<const double> x, std::span<double> y,
                      std::int64_t n, std::int32_t k, int threads) {
    const auto rows = static_cast<std::int64_t>(start.size()) - 1;
    for (std::int32_t c = 0; c < k; ++c) std::fill(y.begin() + c * n + rows, y.begin() + (c + 1) * n, 0.0);
#pragma omp parallel for schedule(static) num_threads(threads) if (rows * k > 10000)
    for (std::int64_t r = 0; r < rows; ++r)
        for (std::int32_t c = 0; c < k; c += 4) {
            const std::int32_t some = std::min(4, k - c);
            double sum[4] = {};
            const double* from = x.data() + c * n;
            for (std::int64_t e = start[r]; e < start[r + 1]; ++e) {
                const double v = values[e];
                const double* at = from + columns[e];
                for (std::int32_t q = 0; q < some; ++q) sum[q] += v * at[q * n];
            }
            for (std::int32_t q = 0; q < some; ++q) y[(c + q) * n + r] = sum[q];
        }
}

}  // namespace

void EigenProblem::multiply_m(std::span<const double> x, std::span<double> y, std::int32_t k) {
    if (couples_directions_)
        multiply_columns(km_.row_start, km_.col_index, km_.M_value, x, y, n(), k, job_.threads());
    else
        mass_.multiply(x, y, n(), k, job_.threads());
    multiply_border(border_, border_.M_fr, border_.M_rr, x, y, k);
}

void EigenProblem::multiply_k(std::span<const double> x, std::span<double> y, std::int32_t k) const {
    multiply_columns(km_.row_start, km_.col_index, km_.K_value, x, y, n(), k, job_.threads());
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

double reference_frequency(std::span<const double> lambda, const EigenOptions& options, double rounding) {
    const std::size_t index = options.rigid;
    if (index >= lambda.size() || lambda[index] <= rounding) return 0;
    return frequency_of(lambda[index]);
}

}  // namespace kestralum
