// What the supports do to the body, support by support.
#pragma once

#include <span>
#include <vector>

#include "system/freedoms.h"

namespace kestralum {

// Nodes (flags) whose internal forces the reactions are made of: those that supports hold, tied ones, members
// of rigid bodies that supports hold.
std::vector<char> reaction_nodes(const Freedoms& freedoms, std::int32_t nodes);

// Force and moment of every support about the mean of its nodes; springs of supports included. A node of
// several supports counts for the first of them; what holds a rigid body counts for the support of its first
// held member.
//
// residual  dof_num, N: internal forces less nodal loads, at reaction_nodes()
// bodies    per rigid body: the springs' resistance less its own loads, about the pivot
// u         dof_num, m
// states    of the bodies; empty: at rest
// places    where the forces act for the moments: on the body at rest, or displaced
// nodal     dof_num, N: the same forces, added to the nodes that they act on. What holds a rigid body is
// spread
//           over its held members as the smallest forces of its resultant; empty: not asked for
enum class Places { at_rest, displaced };
std::vector<SupportReaction> support_reactions(const Model& model, const Mesh& mesh, const Freedoms& freedoms,
                                               std::span<const double> residual, std::span<const Vec6> bodies,
                                               std::span<const double> u, Places places = Places::at_rest,
                                               std::span<const RigidState> states = {},
                                               std::span<double> nodal = {});

std::array<double, 3> sum_of(std::span<const SupportReaction> reactions);

}  // namespace kestralum
