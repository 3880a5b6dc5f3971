// What the linear analyses share: from the model store to the reduced, assembled [K] and [M].
#pragma once

#include <functional>
#include <vector>

#include "conditions/constraints.h"
#include "conditions/loads.h"
#include "elements/elasticity.h"
#include "model/run_report.h"
#include "model/settings.h"
#include "solver/ldl.h"
#include "solver/sparse.h"
#include "system/bordered.h"

namespace kestralum {

// Scratch of one linear analysis.
struct LinearSystem {
    NodeElements node_elements;
    DofNumbering numbering;
    Elasticity elasticity;
    SparseKM km;  // reduced to the free degrees of freedom; the members' taken out by transform_rigid()
    RigidSystem rigid;
    Border border;  // of the rigid bodies

    std::int32_t equations() const { return km.rows() + border.nr; }
};

// Says what keeps the store from being analysed: no elements, unknown materials, loads that are no numbers.
// False with report.status bad_input.
bool check_analysable(const ModelStore& store, RunReport& report);

// Renumbers the nodes and rebuilds what depends on the numbering: node normals, the nodes of point
// forces and, with the held results cleared, the result file under its temporary name.
bool renumber_model(ModelStore& store, const Settings& settings, RunReport& report);

// The frame of a linear analysis: checks the store, renumbers it, runs `analyse` (false: the run ends
// early, the report says why) and writes the result file; an early end leaves an earlier file as it was.
RunReport run_linear(ModelStore& store, const Settings& settings, AnalysisType type,
                     const std::function<bool(RunReport&)>& analyse);

// "element 12 of part A at (x, y, z)", e 0-based.
std::string place_of_element(const ModelStore& store, std::int32_t e);

// Renumbers along the longest axis (LMAX) with the lines of the counts, for the analyses that keep no result
// file open meanwhile, and rebuilds what depends on the numbering; sets diag_num without printing it.
void renumber_along_longest(ModelStore& store);

// Ke and Me of the store's elements for assemble_km: linear elasticity, consistent mass; no stiffness inside
// a rigid body. Borrows all.
ElementMatrices element_matrices(const ModelStore& store, const Elasticity& elasticity,
                                 const RigidSystem& rigid);

// The diagonal of K, one entry per equation, as if no body were rigid: what area forces are spread by. `km`
// is the constrained matrix, without the elements inside rigid bodies.
std::vector<double> unstrained_diagonal(const ModelStore& store, const DofNumbering& numbering,
                                        const RigidSystem& rigid, const SparseKM& km);

// Supports and the numbering of the free degrees of freedom, with the progress lines; sets store.fn_free.
// number_freedoms: false with report.status failed when nothing is free.
void count_freedoms(ModelStore& store, NodeElements& node_elements, DofNumbering& numbering,
                    RunReport& report);
bool number_freedoms(ModelStore& store, NodeElements& node_elements, DofNumbering& numbering,
                     RunReport& report);

// Says which forces and supports reach nothing.
void report_unused_records(const ModelStore& store, const DofNumbering& numbering, const LoadVector& load,
                           RunReport& report);

// Largest displacement and Mises stress of frame `frame` (from 0) of the store's results.
void report_largest(const ModelStore& store, std::int32_t frame, RunReport& report);

// Members and motions of the rigid elements; false with report.status bad_input when the records contradict
// the mesh, each other, or name no element.
bool find_rigid_bodies(const ModelStore& store, const NodeElements& node_elements,
                       const DofNumbering& numbering, RigidSystem& rigid, RunReport& report);

// Takes the members out of the system (rigid_transform), adds the combines' springs and prints the counts and
// the members. Nothing without bodies.
void transform_rigid(ModelStore& store, LinearSystem& system, bool with_mass);

// Forces on the equations after the transformation: F, one per degree of freedom free_dofs before it, and the
// rigid forces at the states (empty: at rest).
std::vector<double> reduce_loads(const Mesh& mesh, std::span<const RigidForce> forces,
                                 const RigidSystem& rigid, std::span<const RigidState> states,
                                 const DofNumbering& numbering, std::span<const std::int32_t> free_dofs,
                                 std::span<const double> F);

// What the supports carry: internal forces (3 per node) at the fixed nodes; a rigid body that a support holds
// hands on what acts on it: its members' internal forces and the springs' resistance (per body) less its
// loads.
std::array<double, 3> sum_reactions(const DofNumbering& numbering, const RigidSystem& rigid,
                                    std::span<const double> internal, std::span<const Vec6> springs,
                                    std::span<const Vec6> loads);

// Displacements of all nodes (3 per node) from the equations' values, for small motions.
void expand_solution(const Mesh& mesh, const DofNumbering& numbering, const RigidSystem& rigid,
                     std::span<const double> q, std::span<double> u);

// The factor of the system with its border; null as plan_factor().
std::unique_ptr<BorderedFactor> plan_bordered(const ModelStore& store, const Settings& settings,
                                              const LinearSystem& system, RunReport& report);

// Supports, elasticity, pattern, assembly and elimination, with the progress lines. False with
// report.status set when an element cannot be computed or nothing is free.
bool build_linear_system(ModelStore& store, const Settings& settings, LinearSystem& system,
                         RunReport& report);

// Profile, divisions and the disk budget of the factor of km. Null with report.status disk_budget or failed.
std::unique_ptr<SkylineFactor> plan_factor(const SparseKM& km, std::int32_t diag_num,
                                           const Settings& settings, RunReport& report);

// Factors K ("LU K_sparse" lines); false with report.status failed.
bool run_factorization(const SparseKM& km, std::span<const double> values, SkylineFactor& factor,
                       RunReport& report);

// The first free degree of freedom whose pivot is below 1e-10 of its diagonal: a body or mechanism
// that the supports do not hold. -1 when there is none.
std::int32_t find_free_motion(const SparseKM& km, std::span<const double> values,
                              const SkylineFactor& factor);

}  // namespace kestralum
