// Ten-node tetrahedra that fold at a curved face.
#pragma once

#include <cstdint>

#include "mesh/part_mesh.h"

namespace kestralum {

// Pulls the mid-side nodes of elements whose Jacobian determinant is somewhere under a tenth of that with
// straight edges a quarter of the way to the middles of their edges, again and again until there is none,
// after some rounds all of the way. Elements that are flat or turned with straight edges stay. Returns how
// many elements were altered; 0 for other kinds and where `progress` asks to stop.
std::int64_t straighten_folded(PartMesh& mesh, const Progress& progress);

}  // namespace kestralum
