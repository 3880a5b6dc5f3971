// Tetrahedral meshes from VOL files, the text format of the Netgen mesh generator.
#pragma once

#include <string_view>

#include "mesh/part_mesh.h"

namespace kestralum {

// Four- or ten-node tetrahedra in the program's node order, coordinates × unit_factor; nodes that
// no element uses are kept. Where the usual words stand at their places the file is walked by
// token counts, so that its line breaks do not matter; any other file is read by its section
// words, lines that begin with '#' left out (they then do not count as tokens). False with an
// error (file, token number, token, what is expected), `mesh` then without nodes; also for a file
// that mixes node counts or has elements of other shapes, for one of another format, and for one whose
// tetrahedra are of both hands or have their mid-side nodes in another order than Netgen's. Tetrahedra that
// all are right-handed, Netgen's being left-handed, are turned, with a notice. Domains and boundaries become
// groups.
bool read_vol_text(std::string_view text, std::string_view file_name, double unit_factor, PartMesh& mesh,
                   Remarks& remarks, const Progress& progress);

// The mesh of a "VOL" part, with its console lines. False with an error when the file cannot be
// opened or read.
bool import_vol(const Part& part, MeshContext& context, PartMesh& mesh);

}  // namespace kestralum
