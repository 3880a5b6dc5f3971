// Meshes of the unit cube whose inner nodes are moved.
#pragma once

#include "model/mesh.h"

namespace kestralum {

enum class Distortion {
    none,
    smooth,  // by a smooth map of the cube onto itself that also slides nodes in its faces; the same map on
             // every mesh, mid-side nodes included, so that edges are curved
    random,  // by up to 0.15 of a cell in each direction, of a fixed seed; edges stay straight
};

// n × n × n cells: hexahedra, or six tetrahedra in each (Kuhn, 1960). The mesh has the sets "boundary", all
// six faces, and "x", "y", "z", the two faces across each axis.
Mesh cube_mesh(ElementKind kind, int n, Distortion distortion);

}  // namespace kestralum
