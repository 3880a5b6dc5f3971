// A model's mesh with sets, supports and loads in the formats of other programs. Each writer puts the file
// under a temporary name first, so that it is whole or absent. What a format cannot say is left out with a
// notice in `remarks`; false with an error there where the file cannot be written or `progress` asks to stop.
// Coordinates in m, forces in N. Nodes and elements have the numbers of model.mesh.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/model.h"
#include "model/nodal_conditions.h"
#include "model/progress.h"
#include "model/remarks.h"

namespace kestralum {

enum class ExportFormat { inp, msh, vtu, stl };

// By the ending of the file's name, in small or capital letters; none where it is another one.
std::optional<ExportFormat> export_format(std::string_view file_name);

// What a writer is given. `file` is a stored name.
struct ExportJob {
    const Model& model;
    const NodalConditions& conditions;  // empty for the formats that have none
    std::string file;
    int threads = 1;
    Remarks& remarks;
    const Progress& progress;
};

// Input deck of CalculiX and Abaqus: nodes on solids, elements in an ELSET per part, sets and surfaces,
// materials, supports, rigid elements with their springs; a step *STATIC where loads act and one *FREQUENCY
// where mode_num asks for modes or no load acts. The displacements of all nodes (NSET NALL) are printed.
bool export_inp(const ExportJob& job);

// Mesh of Gmsh's, format 4.1 in text, in which an element that is in several groups stands once: physical
// volumes for parts and sets of elements, surfaces for sets of faces, points for sets of nodes.
bool export_msh(const ExportJob& job);

// Grid for ParaView: `force` and `support` at the points, `rigid` (number of the rigid element, 0 = none)
// where there are any; part and material of the cells; for each set the array "set_NAME", 1 at its points,
// and 1 at its elements and those that have a face of it.
bool export_vtu(const ExportJob& job);

// The free faces as triangles, binary, winding outwards.
bool export_stl(const ExportJob& job);

bool export_file(ExportFormat format, const ExportJob& job);

}  // namespace kestralum
