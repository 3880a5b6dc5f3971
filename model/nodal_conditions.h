// What the supports, loads and rigid records of a model come to on the nodes of its mesh: what another
// program needs beside the mesh to run the model's static analysis.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "model/vector3.h"

namespace kestralum {

// A rigid element: its members move as one.
struct RigidMotion {
    std::string name;
    std::vector<std::int32_t> members;  // nodes, 0-based, ascending
    Vec3 point{};       // m; moves with the members: the reference point, a held member where supports
                        // hold one
    bool held = false;  // the point does not move
    std::vector<Vec3> no_turn;  // directions without a rotation about them: none, or up to three that are not
                                // in one plane
    std::array<double, 6> load{};  // of the rigid forces: force (N) and moment about the point (N m)
};

// Springs between two of them, that act at one place and between their rotations.
struct RigidSprings {
    std::string name;
    std::array<std::int32_t, 2> body{};  // indices of the rigid elements
    Vec3 place{};                        // m
    std::array<double, 6> stiffness{};   // along x y z, N/m; about x y z, N m/rad
};

struct NodalConditions {
    std::vector<std::int32_t> fixed;  // nodes that supports hold, 0-based, ascending, each once; members of
                                      // rigid elements too
    std::vector<double> load;         // dof_num: what a static analysis applies at the nodes, N
    std::vector<RigidMotion> rigid;   // one per rigid element; their members have no node in common
    std::vector<RigidSprings> springs;
};

}  // namespace kestralum
