// Surfaces from stereolithography files, ASCII and binary.
#pragma once

#include <string_view>

#include "mesh/part_mesh.h"

namespace kestralum {

// Facet f becomes the row n, n+1, n+2, n, n, n, n, n with n = 1 + 3f and three nodes of its own;
// coordinates × unit_factor. The solid's name may be missing or have several words. A file that
// ends without "endsolid" after a whole facet is taken, with a notice. False with an error
// (file, token number, token, what is expected), `mesh` then without nodes. A file whose length is that of
// the number of facets at its byte 80 is binary, whatever it begins with; errors then name the byte.
bool read_stl_text(std::string_view text, std::string_view file_name, double unit_factor, PartMesh& mesh,
                   Remarks& remarks, const Progress& progress);

// The mesh of an "STL" part, with its console lines: the surface, or with a size= the body inside it, divided
// into tetrahedra as import_cad says. False with an error when the file cannot be opened or read.
bool import_stl(const Part& part, MeshContext& context, PartMesh& mesh);

}  // namespace kestralum
