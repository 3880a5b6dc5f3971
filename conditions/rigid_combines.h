// Springs between the reference points of two rigid bodies, acting at the middle between the points: on the
// displacement of the second body against the first there, and on the rotation between them.
//
// The rotation is the rotation vector of R2 R1ᵀ, in the branch that goes on from the last converged state:
// past half a turn it grows on. Where it has passed half a turn its turns are counted about the axis that it
// had there: the rotation is then swing · twist, the twist about that axis of any size, the swing across it
// below half a turn (swing-twist decomposition; Dobrowolski, arXiv:1506.05481, 2015),
// and the rotation vector is the sum of both. Between two converged states less than half a turn is seen.
//
// With `body_axes` the springs' axes turn with the first body: they act on R1ᵀ w, at the second body's middle
// point on both bodies, and on the rotation vector of R1ᵀ R2, and a CombineTurn is told in these axes.
#pragma once

#include <array>
#include <span>

#include "conditions/rigid_bodies.h"

namespace kestralum {

// What is known of the rotation between the bodies of one record at the last converged state.
struct CombineTurn {
    Vec3 rotation{};       // rad
    bool counted = false;  // about `axis`, a unit vector in fixed directions
    Vec3 axis{};           // with `body_axes` in the first body's
    double twist = 0;      // rad
};

// Springs of one record. force: what they resist with, on (pivot 1, pivot 2), force and moment each; returns
// the energy, J.
double combine_forces(const RigidCombine& record, const RigidSystem& system,
                      std::span<const RigidState> states, const CombineTurn& turn,
                      std::array<Vec6, 2>& force);

// What the dashpots of all records resist with at these velocities (of the pivot, and angular), added to
// `out`; one each per body. They act on the rate of w, or of R1ᵀ w, and on the angular velocity of the second
// body against the first.
void add_dashpot_resistance(std::span<const RigidCombine> records, const RigidSystem& system,
                            std::span<const RigidState> states, std::span<const Vec6> velocities,
                            std::span<Vec6> out);

// Of all records; turns: one each, or none where no body has turned far.

// Takes the states as converged.
void keep_turns(std::span<const RigidCombine> records, std::span<const RigidState> states,
                std::span<CombineTurn> turns);

// The springs' stiffness on the equations of all bodies, added to K (equations × equations, row-major); at
// rest exact and symmetric, elsewhere the derivative of combine_forces by central differences.
void add_combine_stiffness(std::span<const RigidCombine> records, const RigidSystem& system,
                           std::span<const RigidState> states, std::span<const CombineTurn> turns,
                           std::span<double> K);

// The springs' resistance on the equations of all bodies, added to Q.
void add_combine_forces(std::span<const RigidCombine> records, const RigidSystem& system,
                        std::span<const RigidState> states, std::span<const CombineTurn> turns,
                        std::span<double> Q);

// What the springs resist with on every body, force and moment about its pivot, into `out` (one per body).
void combine_resistance(std::span<const RigidCombine> records, const RigidSystem& system,
                        std::span<const RigidState> states, std::span<const CombineTurn> turns,
                        std::span<Vec6> out);

// Small motions q of all bodies: force and moment about the pivot with which the springs resist body b.
Vec6 spring_resistance(std::span<const RigidCombine> records, const RigidSystem& system, std::int32_t b,
                       std::span<const double> q);

}  // namespace kestralum
