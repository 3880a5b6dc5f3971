// The piece of a mesh that one rank computes on.
//
// Elements and nodes are dealt out: each element is counted by one rank, each node has one owner. A rank has
// all elements around the nodes that it owns and around those of the elements that it counts, so that
// whatever is summed at such a node is whole without a message; the further nodes of these elements are its
// ghosts. Equations of all ranks are numbered rank after rank, three to a node.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "conditions/constraint_map.h"
#include "large/team.h"
#include "model/topology.h"

namespace kestralum {

// Who owns the nodes of the run's mesh; the same on every rank.
struct Partition {
    std::vector<std::int32_t> element_rank;  // per element: the rank that counts it
    std::vector<std::int32_t> node_rank;     // per node: its owner
    std::vector<std::int32_t> number;        // per node: its place among the nodes of all ranks
    std::vector<std::int32_t> first;         // size + 1: the first of these places of each rank
};

// Elements are dealt out by METIS on the first rank, by the graph of their common faces (Karypis and Kumar,
// SIAM J. Sci. Comput. 20, 1998); a node goes to the smallest of the ranks whose elements surround it.
// Collective.
Partition partition(const Team& team, const Mesh& mesh, const NodeElements& around);

struct Piece {
    std::vector<std::int32_t> nodes;     // here -> run, 0-based; owned ones first, each group ascending
    std::int32_t owned = 0;              // how many of them are owned
    std::vector<std::int32_t> node_of;   // run -> here, -1: not here
    std::vector<char> whole;             // per node here: all elements around it are here
    std::vector<std::int32_t> elements;  // here -> run, ascending
    std::vector<char> counted;           // per element here: this rank counts it
    std::vector<std::int32_t> number;    // per node here: its place among the nodes of all ranks
    Mesh mesh;                           // nodes and elements here, without sets
    NodeElements around;                 // of `mesh`
    ConstraintMap map;                   // of the run's: the nodes here

    std::int32_t owned_dofs() const { return 3 * owned; }
    // Values of the nodes here, `width` each, from those of all nodes; and of the owned ones into all nodes'.
    std::vector<double> of_all(std::span<const double> all, int width = 3) const;
};

// The piece as a job of its own, in nothing but its mesh another than the whole one; silent, with a report of
// its own.
struct PieceJob {
    PieceJob(const Job& whole, const Piece& piece);

    SilentProgress silent;
    Run run;
    Job job;
};

// `map`: of the run; tied nodes that follow an owned one bring the elements around them with them.
Piece make_piece(const Partition& partition, int rank, const Mesh& mesh, const ConstraintMap& map);

// Per node of the run the values that its owner has, `width` each, from values per owned node of every rank.
std::vector<double> gather_nodes(const Team& team, const Partition& partition, std::span<const double> owned,
                                 int width, bool everywhere);

// Per element of the run, `width` values each, on the first rank, from values of the elements here; nothing
// on the others. Collective.
std::vector<double> gather_elements(const Team& team, const Partition& partition, const Piece& piece,
                                    std::span<const double> values, std::size_t width);

}  // namespace kestralum
