// In which directions the supports with options hold their nodes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/mesh.h"
#include "model/topology.h"

namespace kestralum {

// A support holds a node in one direction.
struct HeldDirection {
    std::int32_t node = 0;    // 0-based
    std::int32_t record = 0;  // index into the supports
    Vec3 direction{};         // unit
    std::int32_t axis =
        -1;  // 0 x, 1 y, 2 z: with the record's displacement along it; -1: along a normal, at 0
};

// The faces of a support or of another record on faces: those of its set; else the free faces whose nodes are
// all selected (node_num flags).
std::vector<ElementFace> support_faces(const BoundaryCondition& record, const Mesh& mesh,
                                       const NodeElements& node_elements);

// Of all supports with options, by node, those along axes before those along normals, each in file order.
// fix=normal: of a plane its axis; else the mean outward normal of the support's faces at the node, weighted
// by their areas; faces that meet there at more than `one_face_degrees` hold it in a direction each. Not
// empty `error`: a record without a face to be normal to.
inline constexpr double one_face_degrees = 50;
struct HeldDirections {
    std::vector<HeldDirection> held;
    std::string error;
};
HeldDirections find_held_directions(std::span<const BoundaryCondition> records, const Mesh& mesh,
                                    const NodeElements& node_elements);

}  // namespace kestralum
