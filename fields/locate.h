// Places in a mesh: in which element they lie, and nodal values there.
//
// The reference coordinates are those of the shape functions: of a hexahedron 0 … 1 along the part's
// directions, of a tetrahedron the second to fourth of its volume coordinates. The inverse of the
// isoparametric map is found by Newton's method (Zienkiewicz and Taylor, The Finite Element Method, 5th ed.
// 2000, vol. 1, ch. 9).
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "elements/element_type.h"
#include "model/mesh.h"
#include "model/vector3.h"

namespace kestralum {

struct Location {
    std::int32_t element = -1;  // 0-based; -1: in none
    Vec3 at{};                  // reference coordinates
};

// Shape functions of a kind's nodes at reference coordinates; N: nodes.
void shape_functions(ElementKind kind, const Vec3& at, double* N);

class Locator {
public:
    // Borrows the mesh, at rest.
    explicit Locator(const Mesh& mesh);

    // The element that the place (m) lies in, the first of several; a place that is outside by less than 1e-6
    // of the element's reference coordinates is in it.
    Location find(const Vec3& place) const;

private:
    std::size_t cell_of(const Vec3& place, bool upper) const;
    const Mesh& mesh_;
    Vec3 low_{}, size_{};  // of the grid, and of a cell, m
    std::array<std::int64_t, 3> cells_{1, 1, 1};
    std::vector<std::int64_t> start_;     // per cell: its elements
    std::vector<std::int32_t> elements_;  // ascending in each cell
};

// Nodal values (`components` per node) in an element, into `out` (components).
void interpolate(const Mesh& mesh, const Location& where, std::span<const double> nodal, int components,
                 double* out);

// Places on the line between two, both included, at even distances.
struct LinePoint {
    Vec3 place{};         // m
    double distance = 0;  // from the first, m
    Location where;
};
std::vector<LinePoint> line_points(const Locator& locator, const Vec3& from, const Vec3& to, int count);

}  // namespace kestralum
