// Where other programs are.
#pragma once

#include <string>

namespace kestralum {

// The program of this name on the path; empty: there is none.
std::string program_on_path(const std::string& name);

// The program of this name in the folder of this one; empty: there is none.
std::string program_beside(const std::string& name);

// `name` as it stands where that is a file here, or where it is none that is installed with this program (in
// ../share/kestralum of the program's folder); else the installed file.
std::string shared_file(const std::string& name);

}  // namespace kestralum
