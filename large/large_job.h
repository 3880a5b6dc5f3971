// What the linear analyses of a team have in common, from the model to the rows of the matrices and from the
// displacements to files.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "large/equations.h"
#include "large/large_run.h"
#include "large/piece_files.h"
#include "large/recovery.h"
#include "large/solver.h"
#include "system/assembly.h"

namespace kestralum {

struct LargeJob {
    const Team& team;
    Job& job;
    bool pieces = false;     // as LargeOptions
    AssembledSystem system;  // freedoms and elasticity alone: the matrices lie on the ranks
    Partition partition;
    Piece piece;
    PieceBorder border;
    double scale = 1;                 // of rows that are not free
    std::optional<CountedPiece> own;  // with the frames so far, where `pieces`
};

// The run's mesh, its freedoms, and the piece of this rank. False with the status set, like all that follows.
bool prepare_pieces(LargeJob& large, Renumbering how = Renumbering::by_settings);

// Without pivots to look at: whether each body is held, and the supports leave no rigid motion of the whole.
// The members of rigid bodies are out of the numbering.
bool check_held(LargeJob& large);

// The rows of this rank and the border; leaves the members of rigid bodies out of the numbering. `diagonal`:
// of K, per equation of the numbering as it was, for resolve_loads().
bool make_rows(LargeJob& large, bool with_mass, PieceRows& rows, std::vector<double>* diagonal);

// The method by the settings' SOLVER: iterative, sparse and skyline (both direct), or `automatic`.
LargeMethod chosen_method(const Settings& settings, LargeMethod automatic);

// Equations up to which a direct factor is taken where the settings leave the choice and it is quicker: its
// memory and operations grow as their 4/3 and 2nd power, the multigrid's as themselves.
inline constexpr std::int64_t direct_equations = 400'000;
// For each so many rows a factor takes as long as one solution by the multigrid, in cubes of 20 to 40 cells.
inline constexpr std::int64_t rows_of_a_motion = 5000;
// What solves with a matrix for the loads and for each motion of the rigid bodies.
LargeMethod method_for_border(const LargeJob& large);

// Owned rows of values per equation of a system with its border (system.freedoms.numbering), and all
// equations' values from owned rows and the border's.
std::vector<double> rows_of(const LargeJob& large, std::span<const double> equations);
std::vector<double> equations_of(const LargeJob& large, std::span<const double> rows,
                                 std::span<const double> bodies);

// Adds the frame of displacements u (3 per node, on every rank) with its stresses: to the run of the first
// rank, or to the piece's frames.
void store_large_frame(LargeJob& large, std::shared_ptr<Frame> frame, const PieceStresses& stresses);

// Writes the result file, of at least `columns` frames, or the pieces. Collective.
void write_large(LargeJob& large, std::int32_t columns);

}  // namespace kestralum
