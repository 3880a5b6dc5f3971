// The mesh of a whole model: nodes, elements, surface facets.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/element_kind.h"
#include "model/records.h"
#include "model/vector3.h"

namespace kestralum {

struct ElementFace {
    std::int32_t element;  // 0-based
    std::int32_t face;     // row of the kind's face table
    auto operator<=>(const ElementFace&) const = default;
};

// A named set of a mesh.
struct MeshSet {
    std::string name;
    std::vector<std::int32_t> nodes;  // 0-based, ascending
    std::vector<ElementFace> faces;   // ascending
    std::vector<std::int32_t>
        elements;  // 0-based, ascending: of a group of bodies, whose faces are then its free ones
};

// Node n (0-based) owns degrees of freedom 3n, 3n+1, 3n+2.
struct Mesh {
    std::vector<double> coordinates;  // node_num × 3: x y z, m
    ElementKind element_type = ElementKind::hexahedron;
    std::vector<std::int32_t> connectivity;   // element_num × nodes per element, 1-based node numbers
    std::vector<std::int32_t> p_ele_part_id;  // element_num: index of the element's part
    std::vector<double> node_n_dir;           // node_num × 3: unit outward normal at surface nodes, 0 inside
    // Facets of STL parts: drawn and exported, no solid elements and not in `connectivity`.
    std::vector<std::int32_t> surface_facets;   // facets × 3, 1-based node numbers
    std::vector<std::int32_t> surface_part_id;  // facets: index of the facet's part
    std::vector<MeshSet> sets;
    std::array<double, 6> size_info{};  // xmin ymin zmin xmax ymax zmax of all nodes, m
    double max_length = 1.0;            // largest edge of that box, m

    std::int32_t node_num() const { return static_cast<std::int32_t>(coordinates.size() / 3); }
    std::int32_t dof_num() const { return 3 * node_num(); }
    int node_per_element() const { return nodes_per_element(element_type); }
    std::int32_t element_num() const {
        return static_cast<std::int32_t>(connectivity.size() / node_per_element());
    }
    // The 1-based node numbers of element e (0-based).
    std::span<const std::int32_t> element(std::int64_t e) const {
        return {connectivity.data() + e * node_per_element(),
                connectivity.data() + (e + 1) * node_per_element()};
    }
    // x y z of node n (0-based), m.
    const double* node(std::int64_t n) const { return coordinates.data() + 3 * n; }
};

// Place of node n (0-based), m.
inline Vec3 place_of(const Mesh& mesh, std::int64_t n) {
    return triple(mesh.coordinates, n);
}

// Nodes of different parts that are closer than this share of the solid parts' extent become one.
inline constexpr double merging_fraction = 1e-6;

// Bounding box and largest edge of the nodes; max_length 1 where the nodes span nothing.
void update_extent(Mesh& mesh);

// Per record the 1-based node of a node force: the first node, in node order, whose x, y and z each differ
// from the point by less than 1e-7 m, a node of an element before one of a facet only; 0 where there is none
// and for area forces.
std::vector<std::int32_t> resolve_force_points(const Mesh& mesh, std::span<const AppliedForce> forces);

class Progress;

// Unit outward normals averaged over the free faces at each node, weighted by area; 0 inside. With a
// `progress` that is cancelled meanwhile: at once, the normals are 0.
void update_node_normals(Mesh& mesh, const Progress* progress = nullptr);

}  // namespace kestralum
