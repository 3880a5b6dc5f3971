// What the readers of mesh files share: finding the file and saying what is wrong in it.
#pragma once

#include <string>
#include <string_view>

#include "model/records.h"
#include "model/token_reader.h"

namespace kestralum {

// Reads the mesh file of a part, looked for in the working directory first and then beside the
// model file. `name` is the path that was read. False: `error` is a whole line.
bool read_mesh_file(const Part& part, std::string_view model_file_name, std::string& name, std::string& text,
                    std::string& error);

// What a mesh file of another kind is, known by its first bytes, and what to do about it: "is compressed
// (gzip): unpack it first". "" for any other text and for one that begins with `own_word`.
std::string foreign_format(std::string_view text, std::string_view own_word, std::string_view expected);

// "file NAME, token N "TOKEN": EXPECTED expected" for the token given last, or that the file ends there.
std::string token_error(std::string_view file_name, const TokenReader& reader, std::string_view expected);

}  // namespace kestralum
