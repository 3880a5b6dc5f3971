// From the run's mesh to the assembled, reduced [K] and [M] of linear elasticity, with the border of the
// rigid bodies beside them.
#pragma once

#include <vector>

#include "elements/elasticity.h"
#include "solver/sparse.h"
#include "system/bordered.h"
#include "system/freedoms.h"

namespace kestralum {

struct AssembledSystem {
    Freedoms freedoms;
    Elasticity elasticity;
    SparseKM km;    // reduced to the free degrees of freedom; the members' taken out by transform_rigid()
    Border border;  // of the rigid bodies

    std::int32_t equations() const {
        return static_cast<std::int32_t>(freedoms.numbering.free_dofs.size()) + border.nr;
    }
};

// Ke and Me of the run's elements for assemble_km: linear elasticity, consistent mass (none where `me` is
// null); no stiffness inside a rigid body of `rigid` (null: none is). Borrows all.
ElementMatrices element_matrices(const Job& job, const Elasticity& elasticity, const RigidSystem* rigid,
                                 HexahedronForm form);

// The diagonal of K, one entry per equation, as if no body were rigid: what area forces are spread by.
// `diagonal`: of the constrained matrix, without the elements inside rigid bodies.
std::vector<double> unstrained_diagonal(const Job& job, const Freedoms& freedoms,
                                        std::vector<double> diagonal);

// Supports, elasticity, pattern, assembly and elimination, with the progress lines. system.freedoms is as
// make_run_mesh() left it. `with_mass` false: M is summed for the total alone. False with the status set when
// an element cannot be computed or nothing is free.
bool assemble_system(Job& job, AssembledSystem& system, bool with_mass = true);

// Takes the members out of the system (rigid_transform), adds the combines' springs and prints the counts and
// the members. Nothing without bodies. False with status failed when no equation is left.
bool transform_rigid(Job& job, AssembledSystem& system, bool with_mass);

// The factor of the system with its border; null as plan_factor(). Borrows the system's
// degrees of freedom. factors_on_disk, followed: as in FactorNeeds.
std::unique_ptr<BorderedFactor> plan_bordered(Job& job, const AssembledSystem& system,
                                              int factors_on_disk = 1, bool followed = false);

// Displacements of all nodes (3 per node) from the equations' values, for small motions. u comes in with the
// held places of q: their displacements, or 0.
void expand_solution(const Mesh& mesh, const Freedoms& freedoms, std::span<const double> q,
                     std::span<double> u);

}  // namespace kestralum
