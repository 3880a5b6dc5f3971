// K φ = λ M φ on the free degrees of freedom with a shifted, inverted operator: what the two eigen
// methods work with.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "analysis/eigen/mass_factor.h"
#include "analysis/eigen/shifted_pencil.h"

namespace kestralum {

// π as the frequencies and shifts of the eigen analyses take it.
inline constexpr double eigen_pi = 3.1415926535;

// √λ / 2π, Hz; 0 for the negative rounding of a rigid mode.
double frequency_of(double lambda);
// (2πf)²
double lambda_of(double frequency);

struct EigenOptions {
    std::int32_t n_mode = 1;            // modes asked for, at most the free degrees of freedom
    std::int32_t rigid = 0;             // motions that no support resists: six of a model without any
    double c_eigen_shift = 0.5;         // factor on the reference frequency of the second shift
    std::vector<double> rigid_motions;  // n × rigid
};

class EigenProblem : public ShiftedPencil {
public:
    // Borrows as ShiftedPencil: the reduced K and M.
    EigenProblem(Job& job, const AssembledSystem& system, std::unique_ptr<BorderedFactor> factor);

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

    bool await_files() override;
    void multiply_m(std::span<const double> x, std::span<double> y, std::int32_t k) override;

    // What an elastic eigenvalue of such a body is like, E / (ρ L²) of its stiffest material over its longest
    // edge, 1/s²: the measure of a body that is all rigid, whose K is rounding alone.
    double elastic_scale() const { return elastic_scale_; }
    // Size of the rounding of an eigenvalue: some hundred ε of the largest k_ii/m_ii.
    double rounding() const { return rounding_; }

private:
    bool start_through_whole_w(const SkylineFactor& like, std::span<double> start);

    double elastic_scale_ = 0, rounding_ = 0;
    NodeMass mass_;
    bool couples_directions_;  // [M] does, through nodes with axes of their own or ties: mass_ does not hold
    std::unique_ptr<MassFactor> W_;  // until its files are written
};

// The frequency that the second shift is taken from: the first of a supported model, the one behind the rigid
// motions of a free one. 0 where there is none or it is nothing but rounding.
double reference_frequency(std::span<const double> lambda, const EigenOptions& options, double rounding);

}  // namespace kestralum
