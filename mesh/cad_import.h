// Solid meshes of CAD files and closed STL surfaces, divided by the program kestralum-mesher beside this one.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "mesh/part_mesh.h"

namespace kestralum {

// Endings of the files of a "STEP" part, in small letters.
inline constexpr std::array<std::string_view, 6> cad_endings{".step", ".stp",  ".iges",
                                                             ".igs",  ".brep", ".brp"};

// The mesh of a "STEP" part (STEP, IGES or BREP by the file's ending), or of an "STL" part with a size, into
// 4- or 10-node tetrahedra by the part's mesh_options. Groups: every body and face of the file, by its name
// there, else "body_N" and "face_N". The mesh is kept beside the model as MODEL_PART_cad.msh with a hash of
// file and options and taken from there while both are the same. 10-node tetrahedra that fold at a curved
// face get straight edges, with a notice. False with an error: the file cannot be read, the mesher is not
// there, fails, crashes, falls silent or is stopped.
bool import_cad(const Part& part, MeshContext& context, PartMesh& mesh);

// Name of the kept mesh as it is stored: beside the model, letters and digits of its and the part's name.
std::string kept_mesh_name(const Part& part, std::string_view model_file_name);

}  // namespace kestralum
