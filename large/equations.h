// The stiffness and mass of a model in rows that lie on the ranks of a team: each assembles and keeps those
// of the nodes that it owns.
//
// Every node has three rows, of the places of q (conditions/constraint_map.h). What does not move freely -
// held and tied places, members of rigid bodies - keeps its row, uncoupled from all others, with the scale of
// the matrix on the diagonal: its value is that of the right-hand side over it, which is zero. So blocks of
// three stay whole.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "conditions/surface_loads.h"
#include "elements/elasticity.h"
#include "large/petsc.h"
#include "large/piece.h"
#include "system/assembly.h"

namespace kestralum {

// The rows of a rank before they are handed to PETSc: of all nodes of the piece, whole for the owned ones,
// through the constraint map.
struct PieceRows {
    SparseKM km;                         // the nodes here × 3
    std::vector<double> diagonal;        // of K, owned × 3, without the elements inside rigid bodies
    double mass_sum = 0;                 // of the owned rows of M: three times this rank's part of the mass
    std::string error;                   // not empty: an element or a spring that cannot be computed
    RunStatus status = RunStatus::done;  // with `error`
};

// Computes the elements of the piece; not collective. `with_mass`: M beside K.
PieceRows assemble_rows(Job& job, const Freedoms& freedoms, const Elasticity& elasticity, const Piece& piece,
                        bool with_mass);

// What the rigid bodies add: of owned rows and body equations.
struct PieceBorder {
    std::int32_t nr = 0;
    std::vector<double> K_fr, M_fr;  // owned × 3 rows, column after column; 0 where the row is not free
    std::vector<double> K_rr, M_rr;  // nr × nr; the same on every rank
};

// Of values on the pattern of the nodes here, on the owned rows: the diagonal, and the product with x, 3 per
// node here.
std::vector<double> owned_diagonal(const Piece& piece, const SparseKM& km);
std::vector<double> multiply_owned(const Piece& piece, const SparseKM& km, std::span<const double> values,
                                   std::span<const double> x);

// Adds the blocks of faces, by nodes of the run, whose elements are here.
AddBlock adding_here(const Piece& piece, const AddBlock& add);

// The bodies' members by the numbers of the nodes here: what tells elements inside a body.
RigidSystem members_here(const RigidSystem& rigid, const Piece& piece);

// The border of the elements at the bodies' states (empty: at rest). Collective.
PieceBorder border_at(const Team& team, const Job& job, const Freedoms& freedoms, const Piece& piece,
                      const SparseKM& km, std::span<const RigidState> states);

// The same at rest with the springs between the bodies in K_rr.
PieceBorder make_border(const Team& team, const Job& job, const Freedoms& freedoms, const Piece& piece,
                        const SparseKM& km);

// Which of the owned rows move freely: those of dof_map, with no member of a rigid body among them.
std::vector<char> free_rows(const Freedoms& freedoms, const Piece& piece);

// The matrix of all ranks from owned rows of `values`; `scale` on the diagonal of rows that are not free.
// With a border the last rank has nr rows more, after its own.
struct RowValues {
    const SparseKM& km;
    std::span<const double> values;
    std::span<const double> fr = {}, rr = {};
    std::int32_t nr = 0;
};
PetscMat make_matrix(const Team& team, const Freedoms& freedoms, const Piece& piece, const RowValues& rows,
                     double scale);

// The largest mean of a rank's diagonal entries.
double scale_of(const Team& team, const Freedoms& freedoms, const Piece& piece, const SparseKM& km);

// The rigid motions of the mesh on the owned rows of the matrix: what its multigrid takes as smooth.
// u: 3 per node of the run, of a mesh that has moved; empty: at rest. Collective.
void set_rigid_motions(const Team& team, const Mesh& mesh, const Freedoms& freedoms, const Piece& piece,
                       Mat matrix, std::span<const double> u = {});

}  // namespace kestralum
