// The part of a model that one of several processes steps: cut out of an explicit run that has been set up
// whole.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "system/job.h"

namespace kestralum {

struct ExplicitState;

// Per node of the steps' mesh its place in the order in which the blocks' elements come upon them: a chunk's
// rows lie together in memory.
std::vector<std::int32_t> order_of_use(const Mesh& mesh);

struct ExplicitPiece {
    // The elements here, their nodes and those bound to these, owned ones first; number: -1 for nodes of the
    // run that are not here.
    StepMesh steps;
    std::int64_t owned = 0;
    std::vector<std::int32_t> elements;             // here -> run, ascending
    std::vector<std::int32_t> node_of;              // steps' mesh of the whole run -> here, -1: not here
    std::vector<std::vector<std::int32_t>> driven;  // places of all driven nodes, record after record
    std::vector<std::int32_t> contact_nodes;        // of the whole run's steps: every process has them
};

// elements: ascending; owned: per node of the run; bound: further nodes (of `whole`), which supports and ties
// tell of together with those of the elements.
ExplicitPiece cut_piece(const StepMesh& whole, std::span<const std::int32_t> elements,
                        std::span<const char> owned, std::span<const std::int32_t> bound);

// The nodes of the whole run's steps that contact looks at or may lay bare; empty: nothing meets.
std::vector<std::int32_t> contact_surface(const Job& job, const ExplicitState& state);

// Leaves state.piece of the whole run's state; the blocks are made of the piece already. The job's mesh is
// that of the piece then.
void keep_piece(Job& job, ExplicitState& state);

}  // namespace kestralum
