// Divides CAD bodies and closed STL surfaces into tetrahedra with the Gmsh library. A program of its own,
// kestralum-mesher, so that what the library does to its process, a crash, a hang or memory without end,
// stays there.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kestralum {

struct MesherRequest {
    std::string file;    // STEP, IGES, BREP or STL, by its ending
    std::string output;  // Gmsh's format 4.1, binary, lengths as the library reads them
    double size = 0;     // edge of an element, in the file's length; 0: chosen, and told
    int order = 2;
    double curvature = -1;  // elements per turn; -1: 12, but no edge under a fifth of `size`
    bool fragment = false;
    std::vector<std::pair<std::string, double>> refinements;  // group and size
    double most_elements = 1e9;  // more than these are refused before the work begins
};

// Meshes and writes. Every body and face is a physical group: by the last word of its label in the file, else
// "body_N" and "face_N" with the number the library gives it, which is the order in the file. Prints "notice
// TEXT" lines; the library's own lines go between them. Throws std::runtime_error with the reason.
void mesh_cad_file(const MesherRequest& request);

}  // namespace kestralum
