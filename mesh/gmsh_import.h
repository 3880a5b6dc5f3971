// Solid meshes from Gmsh's mesh files.
#pragma once

#include <string_view>

#include "mesh/part_mesh.h"

namespace kestralum {

// Formats 2.2 and 4.1, text and binary in either byte order: four- or ten-node tetrahedra or eight-node
// hexahedra in the program's node order, coordinates × unit_factor. Nodes keep the file's order; those that
// no solid has are left out, with a notice where a named group has them. Solids that all are left-handed are
// turned, with a notice. Groups: the physical groups, first the named ones in the file's order, then the
// others as "physical_DIMENSION_NUMBER"; of a file without physical groups the volumes and surfaces as
// "volume_NUMBER" and "surface_NUMBER". False with an error (file, line or byte, token, what is expected),
// `mesh` then without nodes.
bool read_msh_text(std::string_view text, std::string_view file_name, double unit_factor, PartMesh& mesh,
                   Remarks& remarks, const Progress& progress);

// The mesh of an "MSH" part, with its console lines. False with an error when the file cannot be opened or
// read.
bool import_msh(const Part& part, MeshContext& context, PartMesh& mesh);

}  // namespace kestralum
