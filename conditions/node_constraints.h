// What the supports with options and the ties of a model make of the degrees of freedom of its mesh: axes of
// nodes, nodes that follow others, and the places of q (see constraint_map.h) that are held.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "conditions/constraint_map.h"
#include "conditions/rigid_bodies.h"
#include "conditions/supports.h"
#include "conditions/ties.h"

namespace kestralum {

// One value of q that supports hold.
struct HeldDof {
    std::int32_t dof = 0;     // 3·node + place
    std::int32_t record = 0;  // the support that carries its reaction
    // Its displacement: Σ factor · (displacement along x, y, z of a support at the node).
    struct Part {
        double factor;
        std::int32_t record, axis;
    };
    std::vector<Part> parts;  // empty: 0
};

struct NodeConstraints {
    ConstraintMap map;
    std::vector<HeldDof> held;         // ascending
    std::vector<std::string> notices;  // what the user should know
    std::string error;                 // not empty: the records contradict each other or the mesh

    // Value of a held place, m, at `time` in a load case (empty: all of them).
    double displacement(const HeldDof& of, std::span<const BoundaryCondition> records, const Mesh& mesh,
                        double time, const std::string& load_case) const;
};

// whole: nodes that supports without options hold; directions: find_held_directions(); members of rigid
// bodies keep their degrees of freedom here, what holds them is in the bodies' motions.
NodeConstraints find_node_constraints(std::span<const BoundaryCondition> records,
                                      std::span<const TieRecord> ties, const Mesh& mesh,
                                      std::span<const std::int32_t> whole,
                                      std::span<const HeldDirection> directions, const RigidSystem& rigid,
                                      const Progress& progress);

// Whether a record of this case (of a support or load) acts where `wanted` was asked for; an empty wish takes
// all.
inline bool acts_in_case(const std::string& of_record, const std::string& wanted) {
    return wanted.empty() || (of_record.empty() ? std::string(base_case) : of_record) == wanted;
}

}  // namespace kestralum
