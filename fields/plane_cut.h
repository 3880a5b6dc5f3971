// The cut of a plane through the elements of a mesh, or of a surface on which a nodal quantity has one value.
//
// Hexahedra and 4-node tetrahedra are cut along their edges: the polygon joins the places where the plane
// meets them, face by face. A 10-node tetrahedron counts as the eight 4-node ones of its corners and mid-side
// nodes, so that a curved one is cut as its faces are drawn. A node within 1e-9 of the mesh's largest edge of
// the plane counts to the side that the normal points away from: faces that lie in the plane are cut once, by
// the element on the other side of them.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "model/mesh.h"
#include "model/section.h"

namespace kestralum {

struct PlaneCut {
    // Vertices, each between two nodes: value = (1 - share) of the first + share of the second.
    std::vector<std::array<std::int32_t, 2>> between;  // 0-based
    std::vector<double> share;
    // Polygons: vertices start[k] … start[k + 1] - 1 of `corners`, anticlockwise seen from where the normal
    // points to.
    std::vector<std::int32_t> start{0}, corners;
    std::vector<std::int32_t> element;  // per polygon, 0-based, ascending

    std::size_t vertices() const { return between.size(); }
    std::size_t polygons() const { return element.size(); }
    std::span<const std::int32_t> polygon(std::size_t k) const {
        return {corners.data() + start[k], corners.data() + start[k + 1]};
    }
};

// u: 3 per node, m, of the shape that is cut; empty: at rest.
PlaneCut cut_mesh(const Mesh& mesh, const SectionPlane& plane, std::span<const double> u = {});

// Per node the distance along the normal, m; 0 where the node counts as in the plane.
std::vector<double> distances_to(const Mesh& mesh, const SectionPlane& plane, std::span<const double> u = {});

// The cut where a level, one finite value per node and linear along the edges, is 0: between the nodes above
// 0 and the others. Polygons run anticlockwise seen from the side above 0. Elements that are `gone` (flags;
// empty: none) are not cut.
PlaneCut cut_at_level(const Mesh& mesh, std::span<const double> level, std::span<const char> gone = {});

// Per node: it is on the side that the normal points to.
std::vector<char> nodes_beyond(const Mesh& mesh, const SectionPlane& plane, std::span<const double> u = {});

// Nodal values (`components` per node) at the vertices.
std::vector<double> values_at(const PlaneCut& cut, std::span<const double> nodal, int components);

// Places of the vertices, 3 each, m.
std::vector<double> places_of(const PlaneCut& cut, const Mesh& mesh, std::span<const double> u = {});

// The polygons as triangles, for drawing: three vertices each, and each one's polygon.
struct CutTriangles {
    std::vector<std::int32_t> corners, polygon;
};
CutTriangles triangles_of(const PlaneCut& cut);

// Area of each polygon (m^2), of vertices at `places`.
std::vector<double> areas_of(const PlaneCut& cut, std::span<const double> places);

}  // namespace kestralum
