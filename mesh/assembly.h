// The parts of a model, meshed, placed and joined into the one mesh that the analyses use.
#pragma once

#include <span>
#include <string_view>

#include "model/mesh.h"
#include "model/progress.h"
#include "model/remarks.h"

namespace kestralum {

// Meshes every part, places it, merges coincident nodes of different parts within 1e-6 of the
// solid parts' extent and numbers what is left part by part. STL parts become surface_facets: their
// nodes follow the same numbering but merge with nobody, and they do not decide the element type.
// Fills coordinates, element_type, connectivity, p_ele_part_id, the facets, the sets "PART.GROUP" and the
// extent; node_n_dir is sized and 0. Prints the console lines up to "element_num=…", with max_length the
// extent of the placed parts before merging. False with remarks.errors and `mesh` unchanged: a part that
// cannot be meshed, parts of different element types, coordinates that are not finite, nodes closer than the
// merging can tell, a stop on request.
bool build_mesh(std::span<const Part> parts, std::string_view model_file_name, Mesh& mesh, Remarks& remarks,
                Progress& progress);

}  // namespace kestralum
