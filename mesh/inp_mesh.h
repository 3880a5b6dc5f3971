// From what an input deck says to nodes and elements: numbers are looked up, instances copied and placed.
#pragma once

#include <vector>

#include "mesh/inp_deck.h"
#include "mesh/node_numbers.h"
#include "mesh/part_mesh.h"

namespace kestralum {

// What was found for the numbers of one body.
struct InpNumbers {
    NodeNumbers nodes, elements;     // places in the body's lists; elements: the solids, then the flats
    std::vector<std::int32_t> kept;  // nodes: number from 1 among those of solids, 0 where no solid has it
    std::int32_t kept_num = 0;
};

// The nodes and elements of one instance within the mesh: where they begin, 0-based.
struct InpPiece {
    std::int32_t body = 0, first_node = 0, first_element = 0;
};

struct InpLayout {
    std::vector<InpNumbers> numbers;  // of each body
    std::vector<InpPiece> pieces;     // first what stands outside of parts, then the instances

    // instance -1: what stands outside of parts
    const InpPiece& piece(std::int32_t instance) const { return pieces[instance + 1]; }
};

// Nodes, in the file's order, and elements; coordinates × unit_factor. Only nodes of solids are kept. Node
// numbers in the bodies' solids become 1-based places in the body. False with the error of `lines`: a number
// that came before, an element with a node that is none, no solids, more than `most`; without one where
// `progress` asks to stop.
bool build_inp_mesh(InpLines& lines, InpDeck& deck, double unit_factor, const MeshCounts& most,
                    PartMesh& mesh, InpLayout& layout, const Progress& progress);

}  // namespace kestralum
