// Rigid elements with their springs and forces, as they stand in the deformed picture. Lengths in m.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "model/model.h"
#include "view/symbols.h"
#include "view/vector.h"

namespace kestralum::view {

// What a rigid element holds of the mesh, as the analyses find it.
struct RigidHold {
    std::vector<std::int32_t> nodes;  // 0-based
    Vec3 normal{};                    // unit, mean outward normal at the nodes; 0 where they have none
};

struct RigidTables {
    const Mesh& mesh;
    std::span<const RigidElement> elements;
    std::span<const RigidHold> holds;  // one per element; one that is missing holds nothing
    std::span<const RigidForce> forces;
    std::span<const RigidCombine> combines;
};

// The displacements drawn.
struct RigidShape {
    std::span<const double> vector;  // dof_num, m; empty: at rest
    double factor = 0;               // on it
    bool finite = false;             // rotations are finite, not those of small motions

    bool deforms() const { return factor != 0 && !vector.empty(); }
};

// Where a point fixed to the nodes is drawn when they move as one. What the nodes leave open stays: all
// rotations of one node, the rotation about the line of nodes in a row.
Vec3 carried_point(const Vec3& point, const Mesh& mesh, std::span<const std::int32_t> nodes,
                   const RigidShape& shape);

// A moment: most of a circle about its axis, with a head where it leads to.
struct TurnArrow {
    Vec3 foot;    // reference point
    Vec3 centre;  // away from it along the axis
    Vec3 u, v;    // to where the circle begins and a quarter later, radius long
};
inline constexpr double turn_degrees = 290;  // of the circle

struct RigidSymbols {
    std::vector<Line> lines;       // cross at each reference point, spokes to members, springs
    std::vector<Vec3> members;     // places of the nodes held, about 5000 of each element at most
    std::vector<Arrow> arrows;     // forces at their reference points, 0.15 of max_length
    std::vector<TurnArrow> turns;  // moments; what is 0 has neither
    std::vector<Label> labels;     // names of elements and springs; "%.3e[N]", of moments "%.3e[Nm]"
};

// An element that holds nothing shows its region. A spring is a coil from reference point to reference point,
// and a short one about them where they coincide. Records of elements that do not exist show nothing.
RigidSymbols rigid_symbols(const RigidTables& tables, const RigidShape& shape);

}  // namespace kestralum::view
