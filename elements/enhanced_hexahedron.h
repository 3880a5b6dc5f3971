// The 8-node hexahedron with internal strains, condensed in the element: it bends, sheared and nearly
// incompressible too, where the plain one locks.
//
// H̃ = (det J0 / det J) [ Σ ξi gi ⊗ ai + (β1 ηζ + β2 ζξ + β3 ξη) 1 ],   gi = ∇ξi at the centre
//
// The symmetric part of the first sum is that of the incompatible displacements 1 - ξi² (Taylor, Beresford
// and Wilson, Int. J. Numer. Methods Eng. 10, 1976), written as an enhanced strain (Simo and Rifai, Int. J.
// Numer. Methods Eng. 29, 1990); the tensor is their transpose, which keeps finite strains stable (Glaser and
// Armero, Eng. Comput. 14, 1997). The volumetric terms free the element of locking where the volume keeps
// (Simo, Armero and Taylor, Comput. Methods Appl. Mech. Eng. 110, 1993). The points' weights being det J,
// each term sums to zero over them: constant stresses do no work on it, which is the patch test. Nothing
// depends on the numbering of the nodes.
#pragma once

#include <array>

#include "elements/elasticity.h"

namespace kestralum {

inline constexpr int enhanced_modes = 12;  // 3·i + c: component c of ai; 9 + k: βk

// The factor of a term: φ = ξ η ζ ηζ ζξ ξη at the points, point × 6.
using EnhancedShapes = std::array<std::array<double, 6>, 8>;
extern const EnhancedShapes enhanced_shapes;

// Of one undeformed element.
struct EnhancedFrame {
    std::array<double, 9> g;       // gi, 3·i + c, 1/m
    std::array<double, 24> dN;     // ∂N/∂(x y z) at the centre: nodes × 3, 1/m
    double det;                    // det J0, m^3
    std::array<double, 8> factor;  // det J0 / det J at the points
};
EnhancedFrame enhanced_frame(const ElementPoints& points);

// Takes what the internal strains give way out of the plain element's stiffness ke (24²).
void condense_enhanced(const ElementPoints& points, const IsotropicModuli& D, double* ke);

// The parameters at the nodal displacements u (24): Σ w Gᵀ D (B u + G α - ε0) = 0. initial: points × 6
// strains ε0; null: none.
std::array<double, enhanced_modes> enhanced_parameters(const ElementPoints& points, const IsotropicModuli& D,
                                                       const double* u, const double* initial);

// Adds the internal strain at point p, G α, to xx yy zz xy yz zx.
void add_enhanced_strain(const EnhancedFrame& frame, const std::array<double, enhanced_modes>& alpha, int p,
                         double* strain);

// Adds what the internal strains hand on of an initial strain to the nodal forces fe (24), which are to be
// Σ w Bᵀ D ε0 before.
void add_condensed_forces(const ElementPoints& points, const IsotropicModuli& D, const double* initial,
                          double* fe);

// Cholesky's factor of a symmetric positive definite matrix of the modes, in its lower triangle. False where
// it is not positive definite.
bool factor_modes(double (*A)[enhanced_modes]);
// x := L⁻¹ x and x := L⁻ᵀ x
void solve_lower(const double (*L)[enhanced_modes], double* x);
void solve_upper(const double (*L)[enhanced_modes], double* x);

}  // namespace kestralum
