// Isotropic elasticity and the stiffness and mass of one element.
#pragma once

#include <span>

#include <tnt/tnt_array3d.h>

#include "elements/element_type.h"
#include "model/progress.h"
#include "model/records.h"

namespace kestralum {

// D[i][j][m]: entry (i, j) of the 6 × 6 elasticity matrix of material m, N/m^2. Copies of the array
// are shallow and their counts not atomic: pass it by reference into parallel regions.
struct Elasticity {
    TNT::Array3D<double> D;
};

// Builds the table of all materials and prints the line "Dmat". ν = 0.5 gives infinite entries.
Elasticity build_elasticity(std::span<const Material> materials, Progress& progress);

// The three distinct entries of one material: D00, D01 and D33.
struct IsotropicModuli {
    double a, b, g;
};
IsotropicModuli moduli(const Elasticity& elasticity, std::int32_t material);

// Ke = Σ Bᵀ D B w over the points: (3·nodes)², row-major, N/m.
void element_stiffness(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                       double* ke);

// Equivalent (Mises) stress of xx yy zz xy yz zx.
double mises(const double* stress);

// Largest principal stress of xx yy zz xy yz zx.
double largest_principal(const double* stress);

}  // namespace kestralum
