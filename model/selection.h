// Which nodes a record selects: the one place where a node is held against planes, boxes, discs, sets and
// points. A record with the name of a set selects the nodes of mesh.sets, whatever its kind.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "model/explicit_records.h"
#include "model/topology.h"

namespace kestralum {

// Whether a place lies in the box xmin xmax ymin ymax zmin zmax (m), `margin` wider on every side; with its
// surface, or without.
bool in_box(const double* x, const std::array<double, 6>& box, double margin);
bool strictly_in_box(const double* x, const std::array<double, 6>& box, double margin);

// Nodes (0-based, ascending) of a support: kind plane within 1e-10 m of the plane (the axis's
// max), kind area exactly on it and within 1e-10 m of the rectangle, kind volume within 1e-6 m of the box.
std::vector<std::int32_t> select_nodes(const BoundaryCondition& record, const Mesh& mesh);

// The same of a velocity; of kind part the nodes of the elements of the parts of that name.
std::vector<std::int32_t> select_nodes(const VelocityRecord& record, const std::vector<Part>& parts,
                                       const Mesh& mesh);

// Nodes of an area force: strictly inside its box made 1e-7 m wider.
std::vector<std::int32_t> select_nodes(const AppliedForce& record, const Mesh& mesh);

// Nodes on solid elements of a rigid element: within 1e-7 m of its box or disc.
std::vector<std::int32_t> select_nodes(const RigidElement& record, const Mesh& mesh,
                                       const NodeElements& node_elements);

// The node (0-based) on a solid element that lies nearest to a place, the first of several.
std::int32_t nearest_node(const Mesh& mesh, const NodeElements& node_elements,
                          const std::array<double, 3>& place);

}  // namespace kestralum
