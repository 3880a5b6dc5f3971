// Conjugate gradients with multigrid in a factor's place, for systems that are too large to factor.
#pragma once

#include <functional>
#include <memory>

#include "solver/factor.h"
#include "solver/multigrid.h"

namespace kestralum {

struct IterativeOptions {
    int threads = 1;
    double tolerance = 1e-10;  // ‖b - A x‖ / ‖b‖
    MultigridOptions levels = {};
    // The factor to go on with where the iteration cannot: a matrix that is not positive, or one on which it
    // stalls. Told why; null where it cannot be had.
    std::function<std::unique_ptr<Factor>(const std::string& why)> direct;
};

// Levels are made by factor(), every column is solved in turn. From the first failure on the direct factor
// does the work.
class IterativeFactor : public Factor {
public:
    // Borrows the places.
    IterativeFactor(EquationPlaces places, IterativeOptions options);

    FactorStatus factor(const SparseKM& km, std::span<const double> values, Progress& progress) override;
    bool solve(std::span<double> x, std::int32_t k = 1, const Progress* progress = nullptr) override;
    FactorStatus await_files() override { return direct_ ? direct_->await_files() : FactorStatus::ok; }
    std::int64_t negative_pivots() const override { return direct_ ? direct_->negative_pivots() : 0; }
    // None without a direct factor: no supported body stalls.
    std::vector<SmallPivot> small_pivots(double share) const override {
        return direct_ ? direct_->small_pivots(share) : std::vector<SmallPivot>{};
    }
    std::int64_t entries() const override { return direct_ ? direct_->entries() : 0; }
    std::string error() const override { return error_; }
    std::string outcome() const override;

    // For those who know what they have: the levels of the last factor(), while it iterates() still.
    bool iterates() const { return !direct_; }
    Multigrid& levels() { return multigrid_; }
    // Goes on with the direct factor from the next factor() on; true.
    bool give_way(const std::string& why) {
        multigrid_ = Multigrid(options_.levels);  // lets its memory go
        direct_ = options_.direct(why);
        return true;
    }

private:
    FactorStatus take_direct(std::string why, Progress& progress);

    EquationPlaces places_;
    IterativeOptions options_;
    Multigrid multigrid_;
    const SparseKM* km_ = nullptr;
    std::span<const double> values_;
    std::unique_ptr<Factor> direct_;
    int most_iterations_ = 0;
    double worst_residual_ = 0;
    bool rounded_ = false;
    std::string error_;
};

}  // namespace kestralum
