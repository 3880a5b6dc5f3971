// Solid meshes from Abaqus input decks, as CalculiX and many mesh generators read and write them.
#pragma once

#include <string_view>

#include "mesh/part_mesh.h"

namespace kestralum {

// Hexahedra (C3D8 and variants) or tetrahedra (C3D4, C3D10 and variants), of one kind, in the program's node
// order; coordinates × unit_factor. Parts and instances become one mesh. Nodes are numbered from 1 in the
// file's order; those of no solid are left out. Sets and surfaces become groups. Included files are looked
// for beside the file that includes them. False with one error (file, line, token, what is expected), `mesh`
// then without nodes: also where there are no solids, or more than `most`.
bool read_inp_text(std::string_view text, std::string_view file_name, double unit_factor,
                   const MeshCounts& most, PartMesh& mesh, Remarks& remarks, const Progress& progress);

// The mesh of an "INP" part, with its console lines. False with an error when the file cannot be opened or
// read.
bool import_inp(const Part& part, MeshContext& context, PartMesh& mesh);

}  // namespace kestralum
