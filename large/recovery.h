// Stresses of displacements on the piece of a rank, and what of them goes to the first rank.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "elements/elasticity.h"
#include "elements/stresses.h"
#include "large/piece.h"
#include "model/run.h"

namespace kestralum {

struct PieceStresses {
    PointResults points;        // of the elements here
    std::vector<double> nodal;  // stress_groups × the nodes here × 3, as in Frame; sound at whole nodes
};

// u: 3 per node of the run; initial: element × points × 6 of the elements here, or empty. Not collective.
PieceStresses piece_stresses(Job& job, const Elasticity& elasticity, const Piece& piece,
                             std::span<const double> u, std::span<const double> initial);

// The nodal stresses of all nodes on the first rank, in the order of Frame; empty on the others. Collective.
std::vector<double> gather_stresses(const Team& team, const Partition& partition, const Piece& piece,
                                    std::span<const double> nodal);

// Largest displacement and Mises stress into the report of every rank; u: 3 per node here; removed: elements
// here that have been taken out, whose nodes do not count where nothing else is around them. Collective.
void find_largest(const Team& team, Job& job, const Piece& piece, std::span<const double> u,
                  std::span<const double> nodal, std::span<const std::int32_t> removed = {});

// Forces of the points' stresses at the nodes with wanted[node of the run] != 0, on every rank. Collective.
std::vector<double> gather_forces(const Team& team, const Job& job, const Partition& partition,
                                  const Piece& piece, const PointResults& points,
                                  std::span<const char> wanted);

// The estimate of elements/error_estimate.h over the elements of all ranks: strain energy (J), relative
// error, the element with the largest share of it (of the run, -1: none) and the error around each node, on
// the first rank.
struct TeamError {
    double strain_energy = 0, relative = 0;
    std::int32_t worst = -1;
    std::vector<double> nodal;
};
TeamError find_error(const Team& team, const Job& job, const Piece& piece, const PieceStresses& stresses);

}  // namespace kestralum
