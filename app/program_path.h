// Where other programs are.
#pragma once

#include <string>

namespace kestralum {

// The program of this name on the path; empty: there is none.
std::string program_on_path(const std::string& name);

// The program of this name in the folder of this one; empty: there is none.
std::string program_beside(const std::string& name);

// `name` as it stands where that is a file here or nowhere; else the file of this name in the program's
// folder, in the one above, where the program was built, or in ../share/kestralum, where it is installed.
std::string shared_file(const std::string& name);

}  // namespace kestralum
