#include "analysis/eigen/eigen_problem.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/console.h"

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
    return rr[static_cast<std::size_t>(i - km_.rows()) * static_cast<std::size_t>(border_.nr + 1)];
}

EigenProblem::EigenProblem(const SparseKM& km, const Border& border, std::unique_ptr<BorderedFactor> factor,
                           int threads, RunReport& report)
    : km_(km), border_(border), factor_(std::move(factor)), threads_(threads), report_(report) {
    mass_.row_start.push_back(0);
    double stiffest = 0;
    for (std::int32_t r = 0; r < km.rows(); ++r) {
        const std::size_t row = r;
        for (std::int64_t k = km.row_start[row]; k < km.row_start[row] + km.row_count[row]; ++k) {
            const std::size_t at = k;
            if (km.M_value[at] == 0) continue;
            mass_.col_index.push_back(km.col_index[at]);
            mass_.value.push_back(km.M_value[at]);
        }
        mass_.row_start.push_back(static_cast<std::int64_t>(mass_.value.size()));
    }
    for (std::int32_t i = 0; i < n(); ++i) stiffest = std::max(stiffest, diagonal_k(i) / diagonal_m(i));
    rounding_ = 100 * std::numeric_limits<double>::epsilon() * stiffest;
}

bool EigenProblem::pivots_sound() const {
    const double share = n() * std::numeric_limits<double>::epsilon();
    if (border_.nr > 0 && !(factor_->smallest_scaled(shifted_rr_) >= share)) return false;
    for (std::int32_t i = 0; i < km_.rows(); ++i) {
        const double diagonal = shifted_[km_.diag_pos[i]];
        const double pivot = factor_->free()->D()[i];
        if (!std::isfinite(pivot) || !(std::abs(pivot) >= share * std::abs(diagonal)) || pivot == 0)
            return false;
    }
    return true;
}

bool EigenProblem::factor_shifted(double sigma) {
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
    report_.clock.begin("factor");
    ++report_.factorizations;
    return factor_->factor(km_, shifted_, shifted_fr_, shifted_rr_, report_);
}

bool EigenProblem::shift(double sigma, bool say_frequency) {
    double tenth_of_a_hertz = lambda_of(0.1);
    for (int attempt = 0; attempt < 12; ++attempt) {
        console::print("Shift K sparse\n");
        if (say_frequency)
            console::print("  Shift frequency=%e[Hz]\n", std::sqrt(std::max(sigma, 0.0)) * 0.5 / eigen_pi);
        console::print("Shift K sparse complete\n");
        if (!factor_shifted(sigma)) return false;
        report_.clock.begin("iterate");
        if (pivots_sound()) return true;
        if (say_frequency && attempt < 2) {
            sigma = sigma * 1.001 + tenth_of_a_hertz * 1e-6;
        } else {
            tenth_of_a_hertz *= attempt == 2 && say_frequency ? 1 : 100;
            sigma = tenth_of_a_hertz;
        }
        const std::string line = console::format(
            "a pivot of the shifted matrix is nothing but rounding: the shift is moved to %.6g Hz",
            frequency_of(sigma));
        console::notice("%s", line.c_str());
        report_.remarks.notices.push_back(line);
    }
    report_.fail(RunStatus::failed, "no shift makes the matrix of the eigenproblem sound");
    return false;
}

bool EigenProblem::start_vector_through_w(std::vector<double>& start) {
    report_.clock.begin("factor");
    ++report_.factorizations;
    console::print("LU M_sparse\n");
    // the bodies' part of the vector goes through the diagonal alone: it only has to reach every mode
    start.assign(n(), 1 / std::sqrt(static_cast<double>(n())));
    for (std::int32_t i = km_.rows(); i < n(); ++i) start[i] /= std::sqrt(diagonal_m(i));
    if (!factor_->free()) {
        console::print("LU M_sparse complete\n");
        return true;
    }
    SkylineFactor W(factor_->free()->profile(), factor_->free()->divisions(),
                    {.threads = threads_, .file_stem = "Wtemp"});
    if (W.factor_ww(km_, km_.M_value) != FactorStatus::ok) {
        report_.fail(RunStatus::failed, "the factorization of [M] cannot go on: " + W.error());
        return false;
    }
    console::print("LU M_sparse complete\n");
    console::print("s_L:%lld\n", static_cast<long long>(W.profile().Ls_num));
    report_.clock.begin("iterate");
    if (W.solve_wt(std::span(start).first(km_.rows()))) return true;
    report_.fail(RunStatus::failed, "the solution with W cannot go on: " + W.error());
    return false;
}

std::int64_t EigenProblem::count_below(double lambda) {
    const double former = sigma_;
    const bool factored = [&] {
        const console::Silence silence;  // the negative pivots are what is counted, not a warning
        return factor_shifted(lambda);
    }();
    report_.check_seconds += report_.clock.rename_last("check");
    report_.clock.begin("iterate");
    sigma_ = former;
    return factored ? factor_->negative_pivots() : -1;
}

bool EigenProblem::solve(std::span<double> x, std::int32_t k) {
    report_.solved_columns += k;
    if (factor_->solve(x, k)) return true;
    report_.fail(RunStatus::failed, "the solution cannot go on: " + factor_->error());
    return false;
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
            for (std::int64_t e = start[r]; e < start[static_cast<std::size_t>(r) + 1]; ++e) {
                const double v = values[e];
                const double* at = from + columns[e];
                for (std::int32_t q = 0; q < some; ++q) sum[q] += v * at[q * n];
            }
            for (std::int32_t q = 0; q < some; ++q) y[(c + q) * n + r] = sum[q];
        }
}

}  // namespace

void EigenProblem::multiply_m(std::span<const double> x, std::span<double> y, std::int32_t k) const {
    multiply_columns(mass_.row_start, mass_.col_index, mass_.value, x, y, n(), k, threads_);
    multiply_border(border_, border_.M_fr, border_.M_rr, x, y, k);
}

void EigenProblem::multiply_k(std::span<const double> x, std::span<double> y, std::int32_t k) const {
    multiply_columns(km_.row_start, km_.col_index, km_.K_value, x, y, n(), k, threads_);
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
        best = {0.5 * (a + b), j};
    }
    if (best.below == 0 && all_of_them && !lambda.empty()) {
        const double largest = lambda.back();
        best = {largest + std::max(std::abs(largest), 100 * rounding),
                static_cast<std::int32_t>(lambda.size())};
    }
    return best;
}

double reference_frequency(std::span<const double> lambda, const EigenOptions& options, double rounding) {
    const std::size_t index = options.supported ? 0 : 6;
    if (index >= lambda.size() || lambda[index] <= rounding) return 0;
    return frequency_of(lambda[index]);
}

}  // namespace kestralum
