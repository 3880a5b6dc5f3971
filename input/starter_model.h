// A first model for a file of a part: a mesh or CAD file is opened by way of a model file that imports it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestralum {

// Endings of meshes and CAD files, in small letters: .step … .msh .inp .vol .stl.
std::vector<std::string_view> part_file_endings();

// Whether a file's ending, in capitals or not, is one of them; not where the file begins with a model's
// section, as a model of such a name does.
bool is_part_file(std::string_view name);

struct StarterModel {
    std::string file;    // name of the model file; empty where it could not be written
    std::string error;   // then why, a line
    std::string notice;  // what the user should know of it, a line
};

// Writes a model of the part beside it: material, the part in millimetres, empty sections and what to do
// next. part.step gives part.txt; a file that is there is never altered: one that holds the very same text is
// taken as it is, beside another one stands part_2.txt, part_3.txt, … Where part.txt imports the part
// already, the notice says so. Errors: a name that a model file cannot hold (blanks, % in front, a backslash,
// more than 127 characters), a part that cannot be read, a folder that cannot be written.
StarterModel write_starter_model(const std::string& part_file);

}  // namespace kestralum
