// Plane sections of quadrilaterals and the hexahedra extruded from them: every parametric shape is
// a section in x, y drawn out along z.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "mesh/part_mesh.h"

namespace kestralum {

struct Section {
    std::vector<double> xy;           // nodes × 2, in the unit of the part's sizes
    std::vector<std::int32_t> quads;  // cells × 4: 0-based section nodes at offsets (i, j) =
                                      // (0,0) (1,0) (1,1) (0,1), counter-clockwise

    void add_node(double x, double y) {
        xy.push_back(x);
        xy.push_back(y);
    }
    void add_quad(std::int32_t n00, std::int32_t n10, std::int32_t n11, std::int32_t n01) {
        quads.insert(quads.end(), {n00, n10, n11, n01});
    }
};

// A family of shapes with a constant section; the last size is the length along z and the last
// division its layers. All functions are called with divisions of at least 1.
struct ExtrudedShape {
    int signed_size;                            // slot of a size that may be 0 or negative, -1 none
    std::string (*fault)(const Part&);          // what is wrong with sizes and divisions, "" nothing
    MeshCounts (*section_counts)(const Part&);  // cells and nodes of the section, saturated
    std::string (*head)(const Part&, const MeshCounts&);  // console lines; counts of the whole part
    Section (*section)(const Part&);
};

// The families, each in a file of its own.
extern const ExtrudedShape box_shape, hollow_box_shape, trapezoid_shape, cylinder_shape, arch_shape,
    hollow_cylinder_shape, tripole_shape;

// Hexahedra over `layers` equal layers up to z = length. Node: section node + layer × section
// nodes; element: section cell + layer × section cells. All coordinates are multiplied by `unit`. False
// where `progress` asked to stop; the mesh is then not whole.
bool extrude(const Section& section, double length, std::int32_t layers, double unit, PartMesh& mesh,
             const Progress& progress);

// Cells of a grid of ni × nj whose node (i, j) is i + (ni + 1)·j, row by row.
void add_grid_quads(std::int32_t ni, std::int32_t nj, Section& section);

// Line i of n equal steps from 0 to size; the last line is the size itself.
inline double grid_line(std::int64_t i, std::int64_t n, double size) {
    return i == n ? size : static_cast<double>(i) * (size / static_cast<double>(n));
}

// cos and sin of an angle in degrees, exact at every multiple of 90 whatever its sign.
std::array<double, 2> direction(double degrees);

}  // namespace kestralum
