// The sets and surfaces of an input deck as groups.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "mesh/inp_mesh.h"

namespace kestralum {

// The face of the program's table for each side S1 … of a solid, when the nodes `before` of an element, in
// the program's order, have become `after` by a check of the order: all elements are turned in the same way.
std::vector<int> find_inp_sides(ElementKind kind, std::span<const std::int32_t> before,
                                std::span<const std::int32_t> after);

// First the sets of the instances as "INSTANCE.SET", then the others, in the file's order; those that a
// program made for its own use are left out, and a node set with just the nodes of the element set of its
// name. A set of solids has elements, one of surface elements faces by their corners, one of line elements
// nodes. At most `most_entries` entries together. False with the error of `lines`: a side that the element
// does not have, too many entries; without one where `progress` asks to stop. Notice: entries that belong to
// no solid.
bool find_inp_groups(InpLines& lines, const InpDeck& deck, const InpLayout& layout, const PartMesh& mesh,
                     std::span<const int> sides, std::int64_t most_entries, std::string_view file_name,
                     std::vector<RawGroup>& groups, std::vector<std::string>& notices,
                     const Progress& progress);

}  // namespace kestralum
