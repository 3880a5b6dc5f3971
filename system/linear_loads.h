// The right-hand sides of a linear analysis: its load cases on the equations, with what temperatures and the
// displacements of supports make of them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "system/assembly.h"
#include "system/load_set.h"

namespace kestralum {

inline constexpr double end_of_load = 1;  // the `time` of an analysis without one

// One load case, or the sum of some.
struct CaseTerms {
    std::string name;  // empty where the model has but one case
    std::vector<std::pair<std::string, double>> terms;
};

// Cases and combinations in their order, or the one that was asked for. False with status bad_input where
// that is neither, or a combination names no case.
bool find_cases(Job& job, std::vector<CaseTerms>& out);

// What one case puts on the body, and the displacements it prescribes.
struct LinearLoad {
    AppliedLoads applied;                // nodal and rigid, without the thermal forces
    std::vector<double> held;            // dof_num: the held places of q, m; empty: all 0
    std::vector<double> initial_strain;  // element_num × points × 6; empty: none
};
LinearLoad load_of_case(const Job& job, const LoadSet& loads, const Freedoms& freedoms,
                        const std::string& load_case);
// The nodal forces of initial strains (element_num × points × 6) of job.mesh(), added to `nodal`.
void add_strain_forces(const Job& job, const Elasticity& elasticity, std::span<const double> strain,
                       std::span<double> nodal);
// Σ factor · the other, in the size of the first that has any.
void add_load(LinearLoad& sum, double factor, const LinearLoad& other);

// F on the equations after transform_rigid(): the loads, the forces of the initial strain, less what the
// prescribed displacements resist with.
std::vector<double> right_hand_side(Job& job, const AssembledSystem& system, const LinearLoad& load);

// Displacements of all nodes from the equations' values and the held places.
std::vector<double> displacements(const Mesh& mesh, const Freedoms& freedoms, std::span<const double> q,
                                  const LinearLoad& load);

}  // namespace kestralum
