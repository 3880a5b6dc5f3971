// The static state of a model's loads and the stiffness that its stresses have: what linear buckling and the
// modes of a stressed body begin with.
//
//     G = Kσ + Kp,   Kσ = Σ ∫ (∇Ni·σ∇Nj) 1 dV   (Bathe, Finite Element Procedures, 1996, 6.8.2)
//
// Kp is that of pressures, which follow the surface; bodies that are rigid have beside it what the forces on
// them do when they turn. All at rest: displacements before buckling are small.
#pragma once

#include <memory>
#include <vector>

#include "system/assembly.h"

namespace kestralum {

struct StressStiffness {
    std::vector<double> G, G_fr, G_rr;  // on the pattern of system.km, and as in Border; N/m
    bool stressed = false;              // false: the stresses are nothing but rounding
    double strain = 0;                  // largest stress over Young's modulus
};

struct StressStiffnessNeeds {
    bool with_mass = false;
    int factors_on_disk = 1;  // as in FactorNeeds
    const char* direct = "";  // why a factor is needed where the settings would iterate
};

// Assembles the system with the rigid bodies taken out, plans its factor, solves for all loads or those of
// options.load_case (a case or a combination; temperatures and displacements of supports are loads too) and
// makes G. `factor` is that of K then. report: applied loads, residual. False with the status set; a body
// that is free or whose stiffness at rest has negative pivots is failed.
bool find_stress_stiffness(Job& job, AssembledSystem& system, const StressStiffnessNeeds& needs,
                           std::unique_ptr<BorderedFactor>& factor, StressStiffness& out);

}  // namespace kestralum
