// Linear buckling (K + λ G) φ = 0 as G φ = κ K φ with κ = -1/λ: the smallest load factors above zero are the
// lowest κ, ascending with them. (G - σK)⁻¹ K with σ = -1/s is s (K + sG)⁻¹ K, the inverted operator at the
// load factor s (Grimes, Lewis and Simon, SIAM J. Matrix Anal. Appl. 15, 1994, 2.2: the buckling
// transformation), in the K inner product.
#pragma once

#include "analysis/eigen/shifted_pencil.h"

namespace kestralum {

inline double load_factor_of(double kappa) {
    return -1 / kappa;
}

class BucklingProblem : public ShiftedPencil {
public:
    // system: [G] in the place of [K] and [K] in that of [M]. `factor` is that of K and in force: until the
    // first shift() the recurrence works with K⁻¹ G, whose eigenvalues are the κ themselves.
    using ShiftedPencil::ShiftedPencil;

    // Factors K + sG for the load factor s, which moves a little where a pivot is nothing but rounding.
    // `negative`: load factors in (0, s). False with the report's status set.
    bool shift(double& s, std::int64_t& negative);
    bool operate(std::span<const double> V, std::span<const double> BV, std::vector<double>& W,
                 std::int32_t k) override;
    // κ of an eigenvalue θ of what operate() applies; `sigma`: of the factor in force.
    double kappa_of(double theta, double sigma) const { return shifted_ ? sigma + 1 / theta : theta; }

private:
    bool shifted_ = false;
};

}  // namespace kestralum
