// Working parts made of groups of bodies that have a material of their own.
#pragma once

#include <span>
#include <vector>

#include "model/mesh.h"
#include "model/remarks.h"

namespace kestralum {

// Appends for each entry of each part's group_materials a part "PART.GROUP" with that material and a colour
// of its own, and gives it the group's elements in mesh.p_ele_part_id; an element of several such groups is
// the last one's, with a notice. Errors: a group that the part does not have, which names those it has, one
// of faces, and an unknown material. Parts derived before are taken away first.
bool derive_parts(std::span<const Material> materials, std::vector<Part>& parts, Mesh& mesh,
                  Remarks& remarks);

}  // namespace kestralum
