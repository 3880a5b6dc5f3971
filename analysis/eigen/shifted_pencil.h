// A φ = λ B φ on the free degrees of freedom with a shifted, inverted operator: what the methods for
// eigenvalues work with.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "solver/row_team.h"
#include "system/assembly.h"

namespace kestralum {

// Eigenpairs, ascending: vectors n × count, column after column, B-orthonormal.
struct EigenPairs {
    std::vector<double> lambda;
    std::vector<double> vectors;
};

// In the words of vibrations: A is [K], the system's K_value, symmetric; B is [M], its M_value, positive
// definite. Linear buckling puts other matrices in these places.
class ShiftedPencil {
public:
    // Borrows both: the reduced matrices with the rigid bodies' part. `factor`: profile, divisions and
    // threads of the factors.
    ShiftedPencil(Job& job, const AssembledSystem& system, std::unique_ptr<BorderedFactor> factor)
        : job_(job), km_(system.km), border_(system.border), factor_(std::move(factor)) {}
    virtual ~ShiftedPencil() = default;

    std::int32_t n() const { return km_.rows() + border_.nr; }
    double sigma() const { return sigma_; }
    std::int64_t factor_entries() const { return factor_->free() ? factor_->free()->entries() : 0; }
    // Diagonal entries of equation i.
    double diagonal_k(std::int32_t i) const { return diagonal(i, km_.K_value, border_.K_rr); }
    double diagonal_m(std::int32_t i) const { return diagonal(i, km_.M_value, border_.M_rr); }
    Job& job() { return job_; }
    RunReport& report() { return job_.report(); }
    Progress& progress() { return job_.progress; }

    // Number of eigenvalues below `lambda`: negative pivots of A - λB (Sylvester's law of inertia). Where a
    // pivot is nothing but rounding, `lambda` is moved by up to `slack` either way until the pivots are
    // sound. The factor in force is that of the last shift no more. unsound_count where they never are, -1
    // on failure.
    static constexpr std::int64_t unsound_count = -2;
    std::int64_t count_below(double& lambda, double slack);

    // x := (A - σB)⁻¹ x for k columns; false with the report's status set.
    bool solve(std::span<double> x, std::int32_t k);
    // What a recurrence applies to the block V of k columns: W := (A - σB)⁻¹ B V; BV comes in as B V.
    virtual bool operate(std::span<const double> V, std::span<const double> BV, std::vector<double>& W,
                         std::int32_t k);

    // True while the team works; false with the report's status set where it has ended.
    bool outcome(const RowTeam& team);

    // No other factor is made: the last one goes to its file beside the rest of the run.
    void begin_files() {
        if (factor_->free()) factor_->free()->begin_files();
    }
    // Waits for the factors' files; false with the report's status set.
    virtual bool await_files() { return factor_->await_file(job_); }

    // y := B x, y := A x, k columns.
    virtual void multiply_m(std::span<const double> x, std::span<double> y, std::int32_t k);
    void multiply_k(std::span<const double> x, std::span<double> y, std::int32_t k) const;

protected:
    bool factor_shifted(double sigma, Progress& lines);
    // No pivot of the last factor is nothing but rounding.
    bool pivots_sound() const;

    Job& job_;
    const SparseKM& km_;
    const Border& border_;
    std::unique_ptr<BorderedFactor> factor_;

private:
    double diagonal(std::int32_t i, const std::vector<double>& values, const std::vector<double>& rr) const;

    double sigma_ = 0;
    std::vector<double> shifted_, shifted_fr_, shifted_rr_;
};

// A shift inside a clear gap at or above mode n_mode: between pairs j and j+1 (j >= n_mode, counted
// from 1) whose relative distance is largest among the usable ones. `usable` counts the lowest pairs
// whose values can be trusted to a thousandth. below = 0 when there is no such gap.
struct SpectrumGap {
    double lambda = 0;
    double slack = 0;        // the middle may move by as much either way
    std::int32_t below = 0;  // pairs below it
};
SpectrumGap find_gap(std::span<const double> lambda, std::int32_t n_mode, std::int32_t usable,
                     double rounding, bool all_of_them);

// Random numbers in (-1, 1) from a fixed seed.
class FixedRandom {
public:
    explicit FixedRandom(std::uint64_t seed) : state_(seed) {}
    double next();

private:
    std::uint64_t state_;
};

}  // namespace kestralum
