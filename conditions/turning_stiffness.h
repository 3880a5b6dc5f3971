// What the forces on a rigid body do to its stiffness when it turns.
#pragma once

#include <span>
#include <vector>

#include "conditions/rigid_bodies.h"

namespace kestralum {

// A force (N) that keeps its direction, at a point of a body, told by its place at rest (m).
struct ForceAt {
    Vec3 place{}, force{};
};

// Nodal forces (3 per node) at the members.
std::vector<ForceAt> forces_on_members(const RigidBody& body, const Mesh& mesh,
                                       std::span<const double> nodal);

// What turning a body changes in the moments of the forces on it, internal ones less loads: for the force f
// at the arm r d(r × f) = (δθ × r) × f = (r fᵀ - (r·f) 1) δθ. Not symmetric while a moment is left. Added to
// the matrix of all bodies' equations (equations × equations, row-major).
void add_turning_stiffness(const RigidBody& body, const RigidState& state, std::span<const ForceAt> forces,
                           std::int32_t equations, std::span<double> K_rr);

}  // namespace kestralum
