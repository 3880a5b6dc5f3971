// What the supports, loads and rigid records of a model come to on the nodes of its mesh: what another
// program needs beside the mesh to run the model's static analysis.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
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
    // Of a body that supports hold in some directions, in place of `held` and `no_turn`: in none of these the
    // motion (displacement of the point, rotation) has a part.
    std::vector<std::array<double, 6>> no_motion;
    std::array<double, 6> load{};  // of the rigid forces: force (N) and moment about the point (N m)
};

// Springs between two of them, that act at one place and between their rotations.
struct RigidSprings {
    std::string name;
    std::array<std::int32_t, 2> body{};  // indices of the rigid elements
    Vec3 place{};                        // m
    std::array<double, 6> stiffness{};   // along x y z, N/m; about x y z, N m/rad
};

// A support with options holds a node along a direction; where it moves it to is told case by case.
struct HeldNode {
    std::int32_t node = 0;  // 0-based
    Vec3 direction{};       // unit; those of one node are orthogonal
};

// A node that follows others: its displacement is the weighted sum of theirs.
struct TiedMotion {
    std::int32_t node = 0;                                 // 0-based
    std::vector<std::pair<std::int32_t, double>> weights;  // nodes, 0-based, that follow none
};

// Springs per area come to springs between two degrees of freedom (3·node + axis), or from one to the ground;
// their stiffness may be below zero.
struct SpringTerm {
    std::int32_t dof = 0, other = -1;  // -1: the ground
    double stiffness = 0;              // N/m
};

// What one load case, or a combination, applies.
struct ConditionCase {
    std::string name;                          // empty where the model has but one
    std::vector<double> load;                  // dof_num, N
    std::vector<std::array<double, 6>> rigid;  // per rigid element: as RigidMotion::load
    std::vector<double> held;                  // per entry of NodalConditions::held: displacement, m
    std::vector<double> warmth;  // node_num: above the temperature without strain, K; empty: none
};

struct NodalConditions {
    std::vector<std::int32_t> fixed;  // nodes that supports hold wholly, 0-based, ascending, each once;
                                      // members of rigid elements too
    std::vector<HeldNode> held;       // by node
    std::vector<TiedMotion> ties;     // by node
    std::vector<SpringTerm> ground;   // springs of supports
    std::vector<ConditionCase> cases;
    std::vector<double> load;        // dof_num: what all loads together apply at the nodes, N
    std::vector<RigidMotion> rigid;  // one per rigid element; their members have no node in common
    std::vector<RigidSprings> springs;
};

}  // namespace kestralum
