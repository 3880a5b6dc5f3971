// One element of linear elasticity in each of its forms: stiffness, strains and stresses, the forces of
// initial strains, the stiffness of a stress.
//
// Hexahedra may be enhanced (enhanced_hexahedron.h) or have the mean dilatation: B̄ = B_dev + ⅓ 1 b̄ with the
// element's mean b̄ of the divergence (Nagtegaal, Parks and Rice, Comput. Methods Appl. Mech. Eng. 4, 1974;
// Hughes, Int. J. Numer. Methods Eng. 15, 1980). The other element types have the one form, `full`, whatever
// is asked for.
#pragma once

#include "elements/elasticity.h"

namespace kestralum {

// Ke of the form: (3·nodes)², row-major, symmetric, N/m.
void element_stiffness(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                       HexahedronForm form, double* ke);

// Strains and stresses at the points, points × 6 each, of the nodal displacements u (3·nodes): the strain is
// the form's own, with the internal one, the stress D (ε - ε0). initial: ε0, points × 6; null: none.
void element_stresses(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                      HexahedronForm form, const double* u, const double* initial, double* strain,
                      double* stress);

// The stresses (points × 6) whose Σ w Bᵀ σ with the plain B are the form's nodal forces of `stress`: what the
// mean dilatation takes of the pressure is its mean. Of element_stresses() the forces are Ke u less those of
// the initial strain.
void balancing_stresses(const ElementType& type, const ElementPoints& points, HexahedronForm form,
                        const double* stress, double* out);

// Nodal forces of the points' stresses in the form, fe: 3·nodes, N: Σ w Bᵀ of the balancing stresses.
void stress_forces(const ElementType& type, const ElementPoints& points, HexahedronForm form,
                   const double* stress, double* fe);

// Nodal forces of an initial strain (points × 6), fe: 3·nodes, N: what joins the loads in Ke u = f.
void initial_strain_forces(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                           HexahedronForm form, const double* initial, double* fe);

// Stiffness of the points' stresses (points × 6) on small motions: Ks = Σ w (∇Ni·σ∇Nj) 1, (3·nodes)²,
// row-major, symmetric, N/m. The same in every form: that the stress also works on the second-order part of
// the internal strains is left out. They are of the order of the strain's variation inside one element, not
// of its rotation, which is what a stress meets in buckling.
void geometric_stiffness(const ElementType& type, const ElementPoints& points, const double* stress,
                         double* ke);

}  // namespace kestralum
