// The load vector of the linear analyses.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "conditions/constraints.h"

namespace kestralum {

struct LoadVector {
    std::vector<double> F;  // one per equation, N
    std::vector<std::int32_t>
        reached;  // per record: nodes found (node force: 0 or 1; area: nodes in the box)
    std::vector<std::int32_t> on_fixed;  // per record: of these, nodes whose degree of freedom is fixed
};

// Point forces go to the first node within 1e-7 of the point in each direction; area forces are
// spread over the nodes of the box (1e-7 wider, strictly inside): by `stiffness`, one entry of the
// stiffness diagonal per equation, on hexahedra, evenly on tetrahedra. Each record assigns, it does not add.
// A force on a fixed degree of freedom is reported and lost; in an area such a node takes no share.
LoadVector build_loads(std::span<const AppliedForce> forces, const Mesh& mesh, const DofNumbering& numbering,
                       std::span<const double> stiffness);

}  // namespace kestralum
