// The order of the nodes of imported tetrahedra: which hand they have, and where the mid-side nodes stand.
#pragma once

#include <string>
#include <string_view>

#include "mesh/part_mesh.h"

namespace kestralum {

// Judges tetrahedra in the program's node order by their places. All of negative volume: they are turned,
// with a notice. False with an error that names `file_name`: some are of negative volume and some are not, or
// the mid-side nodes of most lie nearer to the middle of another edge than to that of their own. Flat ones
// decide nothing. False without an error where `progress` asks to stop.
bool check_tetra_order(std::string_view file_name, PartMesh& mesh, Remarks& remarks,
                       const Progress& progress);

}  // namespace kestralum
