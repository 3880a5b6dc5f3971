// What the forms of the finite-strain elements share, and the two that hexahedra have beside the plain one.
#pragma once

#include "elements/finite_elements.h"

namespace kestralum {

struct FiniteElementState {
    ElementPoints points;
    std::array<double, 3 * most_nodes> u;
};

inline std::size_t first_point(const ElementType& type, std::int32_t e) {
    return std::size_t(e) * type.points;
}

inline const PlasticMaterial& material_of(const FiniteBody& body, std::int32_t e) {
    return body.materials[body.material[e]];
}

// H = Σ u_i ⊗ ∇N_i, row-major
void displacement_gradient(int nodes, const double* u, const double* dN, double* H);

// Gradients in the current configuration: ∂N/∂x = F⁻ᵀ ∂N/∂X.
void push_gradients(int nodes, const double* dN, const std::array<double, 9>& F_inverse, double* dn);

// Adds w (Bᵀ c B + (∇Ni·τ∇Nj) 1) to the blocks i <= j of ke.
void add_point_stiffness(int nodes, const double* dn, const FiniteResponse& at, double w, double* ke);

// Σ w τ ∇Ni of one point, added to f.
void add_point_forces(int nodes, const double* dn, const std::array<double, 6>& tau, double w, double* f);

// Takes what a point's response leaves behind into the body's tables.
void store_response(FiniteBody& body, std::size_t point, const FiniteResponse& response);

// Enhanced hexahedra: F = F_u + F_0 Γ(α), F_0 that of the centre, Γ of enhanced_hexahedron.h (Simo, Armero
// and Taylor, Comput. Methods Appl. Mech. Eng. 110, 1993; the transposed modes of Glaser and Armero, Eng.
// Comput. 14, 1997). The parameters are those at which Σ w P:F_0 ∂Γ/∂α = 0, found anew wherever the element
// is looked at: its forces depend on u and the committed states alone. At small strains the linear enhanced
// hexahedron.
bool update_enhanced(FiniteBody& body, const FiniteElementState& state, std::int32_t e);
bool enhanced_tangent(const FiniteBody& body, const FiniteElementState& state, std::int32_t e, double* ke);
void enhanced_gradients(const FiniteBody& body, const FiniteElementState& state, std::int32_t e, double* H);

// Hexahedra of one volume ratio θ, the mean of det F: F̄ = (θ/J)^⅓ F (Nagtegaal, Parks and Rice, 1974; Simo,
// Taylor and Pister, Comput. Methods Appl. Mech. Eng. 51, 1985; Moran, Ortiz and Shih, Int. J. Numer. Methods
// Eng. 29, 1990). The forces are the derivatives of the elements' energy: the tangent is symmetric. At small
// strains B̄.
bool update_mean_dilatation(FiniteBody& body, const FiniteElementState& state, std::int32_t e);
bool mean_dilatation_tangent(const FiniteBody& body, const FiniteElementState& state, std::int32_t e,
                             double* ke);
void mean_dilatation_gradients(const FiniteElementState& state, double* H);

}  // namespace kestralum
