// What stands in a Gmsh mesh file (formats 2.2 and 4.1, text and binary; Geuzaine & Remacle 2009, with the
// file formats in Gmsh's manual), in the file's own order and with its own node places.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/element_kind.h"
#include "model/progress.h"

namespace kestralum {

// A piece of the geometry as elements name it.
struct GmshEntity {
    int dimension;          // 0 point … 3 volume
    std::int32_t tag;       // 0: none is told
    std::int32_t physical;  // number of its physical group; 0: none, or several (see GmshMesh::physicals)
};

// Elements `first` to before `end` of one table belong to `entity`.
struct GmshRun {
    std::int32_t first, end, entity;
};

struct GmshName {
    int dimension;
    std::int32_t tag;
    std::string name;
};

// An entity of format 4.1 that is in a physical group.
struct GmshPhysical {
    int dimension;
    std::int32_t entity, physical;
};

struct GmshMesh {
    std::vector<double> coordinates;  // nodes × 3: x y z, as in the file
    ElementKind kind = ElementKind::hexahedron;
    std::vector<std::int32_t> solids;  // elements × nodes: places in the file (0-based), program's order
    std::vector<std::int64_t> solid_numbers;  // elements: their numbers in the file
    std::vector<std::array<std::int32_t, 4>>
        faces;                             // surface elements' corners, -1 in a triangle's last place
    std::vector<std::int32_t> edge_nodes;  // nodes of line and point elements, one after the other
    std::vector<GmshEntity> entities;      // those that have elements
    std::vector<GmshRun> solid_runs, face_runs, edge_runs;
    std::vector<GmshName> names;          // of physical groups, in the file's order
    std::vector<GmshPhysical> physicals;  // by dimension, entity and physical group; format 4.1
};

// Reads the whole text. False with one line in `error` (file, line or byte, token, what is expected): another
// format, numbers that are none, counts beyond what the file can hold, node numbers that come twice or are
// not there, solids that are neither 4- or 10-node tetrahedra nor 8-node hexahedra, or of several kinds, a
// missing section, an end too soon. False without an error where `progress` asks to stop.
bool read_gmsh(std::string_view text, std::string_view file_name, GmshMesh& mesh, std::string& error,
               const Progress& progress);

}  // namespace kestralum
