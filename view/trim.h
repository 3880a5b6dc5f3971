// What section planes and thresholds leave of the faces that are drawn, the faces that close the cuts, and
// surfaces on which a quantity has one value.
//
// A cut is a level: one value per node, linear along the edges of the elements. What lies above 0 is not
// drawn. Every vertex that a cut makes lies between two others, so that places, displacements and values of
// any quantity follow from those of the nodes: a body that swings carries its cuts along.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "model/mesh.h"
#include "view/surface.h"

namespace kestralum::view {

// Vertices beyond the nodes: number node_num + k lies between two of lower number, at (1 - share) of the
// first and share of the second.
struct FurtherVertices {
    std::vector<std::array<std::int32_t, 2>> between;
    std::vector<double> share;
    std::size_t size() const { return between.size(); }
};

// Appends the values at the further vertices to those at the nodes (`components` each).
void extend(const FurtherVertices& further, int components, std::vector<double>& values);

struct TrimRequest {
    std::vector<std::vector<double>> levels;      // of the cuts, node_num finite values each
    std::vector<std::vector<double>> iso_levels;  // of surfaces inside the body, 0 on each; NaN: none there
    std::span<const char> gone = {};              // per element: not drawn; empty: all are
    bool body = true;                             // else its outline and the iso-surfaces alone
};

struct Trimmed {
    // As Surface tells, over nodes and further vertices; `nodes` and `value_nodes` have nodes alone. Pieces
    // of faces, closing faces and iso-surfaces are groups of single triangles behind the whole faces of their
    // part.
    Surface surface;
    FurtherVertices further;
};

// O(faces + elements) for each cut. The closing face of one cut is trimmed by the others.
Trimmed trim_surface(const Mesh& mesh, const Surface& surface, const TrimRequest& request);

}  // namespace kestralum::view
