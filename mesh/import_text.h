// What the readers of mesh files share: finding the file and saying what is wrong in it.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "mesh/part_mesh.h"
#include "model/records.h"
#include "model/token_reader.h"

namespace kestralum {

// The path of an imported part's file, as it stands in the model. A record's path is cut to its width; the
// first size text keeps more of the same field.
std::string mesh_file_path(const Part& part);

// Where the file of a part was read from: in the working directory, or beside the model file. Empty for a
// part without a file, and where there is none now.
std::string found_mesh_file(const Part& part, std::string_view model_file_name);

// Imports the file of a part: read(text, name) fills the mesh and adds its console lines to those that every
// import prints, "WORD:FILE OPEN !!\n" … "FILE CLOSE !!\n". False with an error where the file cannot be
// opened, read says so, or the mesh passes what is left.
using ReadMesh = std::function<bool(std::string_view text, const std::string& name)>;
bool import_mesh_file(const Part& part, MeshContext& context, PartMesh& mesh, const char* word,
                      const ReadMesh& read);

// Runs `read`, which fills the mesh from a file. Where it gives up, or memory is short, which is an error
// then, the mesh has no nodes, elements and groups.
bool read_or_clear(std::string_view file_name, PartMesh& mesh, Remarks& remarks,
                   const std::function<bool()>& read);

// What a mesh file of another kind is, known by its first bytes, and what to do about it: "is compressed
// (gzip): unpack it first". "" for any other text and for one that begins with `own_word`.
std::string foreign_format(std::string_view text, std::string_view own_word, std::string_view expected);

// "file NAME, token N "TOKEN": EXPECTED expected" for the token given last, or that the file ends there.
std::string token_error(std::string_view file_name, const TokenReader& reader, std::string_view expected);

}  // namespace kestralum
