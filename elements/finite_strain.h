// Elastic-plastic response of one point at finite strain: multiplicative split with logarithmic strains
// (Eterovic and Bathe, Int. J. Numer. Meth. Engng 30, 1990; Simo, Comput. Meth. Appl. Mech. Engng 99, 1992).
//
// F = 1 + H        deformation gradient, H = ∂u/∂X (row-major, H[3r + c] = ∂u_r/∂X_c)
// Cp⁻¹ = 1 + P     inverse plastic metric, the state of the point (symmetric, referential)
// be = F Cp⁻¹ Fᵀ   elastic left Cauchy-Green tensor; its eigenvalues λ² give the logarithmic strains ln λ
// τ = J σ          Kirchhoff stress; Hencky's law: τ = K (tr(ln λ) - 3 thermal) 1 + 2G dev(ln λ) in be's axes
// All differences from the identity are formed as such, so that strains of 1e-12 keep their digits.
#pragma once

#include <array>

#include "elements/plasticity.h"

namespace kestralum {

struct FinitePointState {
    std::array<double, 6> P{};  // Cp⁻¹ - 1, with kinematic hardening the plastic strain: xx yy zz xy yz zx
    double alpha = 0;           // equivalent plastic strain
    double thermal = 0;         // logarithmic, of every length: what temperature asks for
};

// Eigenvalues and unit axes (one after the other) of a trial be - 1.
struct PrincipalAxes {
    std::array<double, 6> be{};  // be - 1: xx yy zz xy yz zx
    std::array<double, 3> value{};
    std::array<double, 9> axis{1, 0, 0, 0, 1, 0, 0, 0, 1};
};

struct FiniteResponse {
    std::array<double, 6> tau;        // Kirchhoff stress, N/m^2: xx yy zz xy yz zx
    double J;                         // det F, volume ratio
    std::array<double, 9> F_inverse;  // row-major
    FinitePointState state;           // where the step ends
    PrincipalAxes trial;              // before the return mapping
    // Spatial tangent, 6 × 6, symmetric, N/m^2: the derivative of τ along the motion (Oldroyd rate), so that
    // Σ w (Bᵀ c B + (∇Ni·τ∇Nj) 1) with current gradients and referential weights is the derivative of
    // Σ w Bᵀ τ. Consistent with the return mapping. Filled only when asked for.
    std::array<double, 36> tangent;
};

// The response at the displacement gradient H, starting from `committed`. False, with nothing else to be
// used, where J <= 0 or a value is not finite. known: of a former call; its axes are taken where be is the
// same.
// A material with a kinematic modulus takes the law of finite_kinematic.h.
bool finite_response(const PlasticMaterial& material, const double* H, const FinitePointState& committed,
                     bool with_tangent, FiniteResponse& out, const PrincipalAxes* known = nullptr);

// Logarithmic strain ½ ln(F Fᵀ) in current axes: xx yy zz and engineering shears xy yz zx.
void logarithmic_strain(const double* H, double* strain);

// Inverse of F = 1 + H (row-major); returns det F. Not filled where det F <= 0.
double invert_deformation(const double* H, double* F_inverse);

}  // namespace kestralum
