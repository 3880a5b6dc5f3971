// Forces on nodes: what the force records of a model put on the degrees of freedom of a mesh.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "conditions/constraints.h"
#include "model/progress.h"

namespace kestralum {

// What became of one force record.
struct LoadedRecord {
    std::int32_t reached = 0;        // nodes found (node force: 0 or 1; area: nodes in the box)
    std::int32_t on_fixed = 0;       // of these, nodes whose degree of freedom is fixed
    std::int32_t replaced = 0;       // of these, nodes that a later record loads in the same direction
    double applied = 0;              // what is left of its force, N
    std::array<double, 3> moment{};  // of an area's shares about the middle of its area, N·m
    double arm = 0;                  // that moment's size over the force, m
    double size = 0;                 // largest edge of the box around the area's nodes, m
};

struct LoadVector {
    std::vector<double> nodal;          // dof_num, N
    std::vector<LoadedRecord> records;  // one per force record
};

// Where forces go: the mesh and what can move of it.
struct LoadPlaces {
    const Mesh& mesh;
    const NodeElements& node_elements;
    const DofNumbering& numbering;
    const ConstraintMap& map;
};

// Point forces go to their node (resolve_force_points); area forces are spread over the nodes of the box: by
// `stiffness`, one entry of the stiffness diagonal per equation, on hexahedra, evenly on tetrahedra. Each
// record assigns, it does not add: of two on one degree of freedom the later stands. A force on a fixed
// degree of freedom is printed and lost; in an area such a node takes no share. chosen: flags of the records
// that are taken; empty: all.
LoadVector build_loads(std::span<const AppliedForce> forces, std::span<const std::int32_t> force_node,
                       const LoadPlaces& places, std::span<const double> stiffness, Progress& progress,
                       std::span<const char> chosen = {});

}  // namespace kestralum
