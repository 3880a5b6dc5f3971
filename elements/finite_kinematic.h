// The point of a material with kinematic hardening at finite strain: the law of small strains in the space of
// logarithmic strains (Miehe, Apel and Lambrecht, Comput. Methods Appl. Mech. Eng. 191, 2002).
//
// E = ½ ln C, C = FᵀF      logarithmic strain of the body as it lies at rest: it does not see a rotation
// T = K (tr E - 3 thermal) 1 + 2G (dev E - Ep)    its stress
// ξ = T - β, β = 2/3 H Ep  what yields: Ep is the plastic strain, β the backstress (Prager 1956)
// τ = F (T : 2 ∂E/∂C) Fᵀ   Kirchhoff stress
// FinitePointState::P is Ep here. Without yielding it is the law of finite_strain.h; with it and without
// backstress the two agree where the axes of strain stay, and everywhere to first order of the strains.
#pragma once

#include "elements/finite_strain.h"

namespace kestralum {

// As finite_response(), whose arguments it takes. The tangent is exact, that of the return included.
bool kinematic_response(const PlasticMaterial& material, const double* H, const FinitePointState& committed,
                        bool with_tangent, FiniteResponse& out, const PrincipalAxes* known);

}  // namespace kestralum
