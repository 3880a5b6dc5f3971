// K φ = λ M φ on the free degrees of freedom with a shifted, inverted operator: what the two eigen
// methods work with.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "analysis/eigen/mass_factor.h"
#include "solver/row_team.h"
#include "system/assembly.h"

namespace kestralum {

// π as the frequencies and shifts of the eigen analyses take it.
inline constexpr double eigen_pi = 3.1415926535;

// √λ / 2π, Hz; 0 for the negative rounding of a rigid mode.
double frequency_of(double lambda);
// (2πf)²
double lambda_of(double frequency);

// Eigenpairs, ascending: vectors n × count, column after column, M-orthonormal.
struct EigenPairs {
    std::vector<double> lambda;
    std::vector<double> vectors;
};

struct EigenOptions {
    std::int32_t n_mode = 1;            // modes asked for, at most the free degrees of freedom
    std::int32_t rigid = 0;             // motions that no support resists: six of a model without any
    double c_eigen_shift = 0.5;         // factor on the reference frequency of the second shift
    std::vector<double> rigid_motions;  // n × rigid
};

class EigenProblem {
public:
    // Borrows both: the reduced K and M with the rigid bodies' part. `factor`: profile, divisions and threads
    // of the factors.
    EigenProblem(Job& job, const AssembledSystem& system, std::unique_ptr<BorderedFactor> factor);

    std::int32_t n() const { return km_.rows() + border_.nr; }
    double sigma() const { return sigma_; }
    std::int64_t factor_entries() const { return factor_->free() ? factor_->free()->entries() : 0; }
    // Diagonal entries of equation i.
    double diagonal_k(std::int32_t i) const { return diagonal(i, km_.K_value, border_.K_rr); }
    double diagonal_m(std::int32_t i) const { return diagonal(i, km_.M_value, border_.M_rr); }
    Job& job() { return job_; }
    RunReport& report() { return job_.report(); }
    Progress& progress() { return job_.progress; }

    // Factors K - σM with the lines "Shift K sparse" … "LU K_sparse complete"; with_frequency adds
    // "  Shift frequency=%e[Hz]". A pivot that is zero, not finite or below n·ε·a_ii moves σ: up in
    // small steps first, then to 0.1 Hz and tenfold frequencies from there, with a note. False
    // with the report's status set when the factor cannot be written or no shift is sound.
    bool shift(double sigma, bool with_frequency);
    // Prints and notes that there is nothing to take a second shift from.
    void keep_shift();

    // Factors M - no shift - as W Wᵀ with the lines "LU M_sparse" …; the vector 1/√n · W⁻ᵀ(1 … 1) comes
    // back in `start`.
    bool start_vector_through_w(std::vector<double>& start);

    // Number of eigenvalues below `lambda`: negative pivots of K - λM (Sylvester's law of inertia). Where a
    // pivot is nothing but rounding, `lambda` is moved by up to `slack` either way until the pivots are
    // sound. The factor in force is that of the last shift() no more. unsound_count where they never are, -1
    // on failure.
    static constexpr std::int64_t unsound_count = -2;
    std::int64_t count_below(double& lambda, double slack);

    // x := (K - σM)⁻¹ x for k columns; false with the report's status set.
    bool solve(std::span<double> x, std::int32_t k);

    // True while the team works; false with the report's status set where it has ended.
    bool outcome(const RowTeam& team);

    // No other factor is made: the last one goes to its file beside the rest of the run.
    void begin_files() {
        if (factor_->free()) factor_->free()->begin_files();
    }
    // Waits for the factors' files; false with the report's status set.
    bool await_files();

    // y := M x, y := K x, k columns.
    void multiply_m(std::span<const double> x, std::span<double> y, std::int32_t k);
    void multiply_k(std::span<const double> x, std::span<double> y, std::int32_t k) const;

    // What an elastic eigenvalue of such a body is like, E / (ρ L²) of its stiffest material over its longest
    // edge, 1/s²: the measure of a body that is all rigid, whose K is rounding alone.
    double elastic_scale() const { return elastic_scale_; }
    // Size of the rounding of an eigenvalue: some hundred ε of the largest k_ii/m_ii.
    double rounding() const { return rounding_; }

private:
    bool factor_shifted(double sigma, Progress& lines);
    bool start_through_whole_w(const SkylineFactor& like, std::span<double> start);
    double diagonal(std::int32_t i, const std::vector<double>& values, const std::vector<double>& rr) const;
    bool pivots_sound() const;

    Job& job_;
    const SparseKM& km_;
    const Border& border_;
    std::unique_ptr<BorderedFactor> factor_;
    double sigma_ = 0;
    double elastic_scale_ = 0, rounding_ = 0;
    std::vector<double> shifted_, shifted_fr_, shifted_rr_;
    NodeMass mass_;
    bool couples_directions_;  // [M] does, through nodes with axes of their own or ties: mass_ does not hold
    std::unique_ptr<MassFactor> W_;  // until its files are written
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

// The frequency that the second shift is taken from: the first of a supported model, the one behind the rigid
// motions of a free one. 0 where there is none or it is nothing but rounding.
double reference_frequency(std::span<const double> lambda, const EigenOptions& options, double rounding);

// Random numbers in (-1, 1) from a fixed seed.
class FixedRandom {
public:
    explicit FixedRandom(std::uint64_t seed) : state_(seed) {}
    double next();

private:
    std::uint64_t state_;
};

}  // namespace kestralum
