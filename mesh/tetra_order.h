// The order of the nodes of imported elements: which hand they have, and where the mid-side nodes stand.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "mesh/part_mesh.h"

namespace kestralum {

// How a file's format orders the nodes of an element, as the errors tell it.
struct FileOrder {
    const char* writer;                     // whose files they are
    bool right_handed;                      // of the files' elements
    const char* edges;                      // of the tetrahedron's mid-side nodes, by corners from 1
    std::span<const std::int64_t> numbers;  // of the elements in the file; none: from 1 on
};

// Judges elements in the program's node order by their places: tetrahedra by the volume on their corners,
// hexahedra by the Jacobian at their centre. All negative: they are turned, with a notice. False with an
// error that names `file_name`: some are negative and some are not, or the mid-side nodes of most tetrahedra
// lie nearer to the middle of another edge than to that of their own. Flat ones decide nothing. False without
// an error where `progress` asks to stop.
bool check_element_order(std::string_view file_name, const FileOrder& order, PartMesh& mesh, Remarks& remarks,
                         const Progress& progress);

// The same for Netgen's tetrahedra.
bool check_tetra_order(std::string_view file_name, PartMesh& mesh, Remarks& remarks,
                       const Progress& progress);

}  // namespace kestralum
